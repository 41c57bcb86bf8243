#include "environment/Gvfs.hpp"

#include <algorithm>
#include <map>
#include <vector>

#include "support/FileUrl.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace {

// A location's mount spec, its values decoded. "prefix" is the folder of the server that the
// location's root stands for, "/" when the spec names none.
struct MountSpec {
    std::string type;
    std::map<std::string, std::string> items;

    std::string value(const std::string& key) const {
        const auto found = items.find(key);
        return found == items.end() ? std::string() : found->second;
    }
};

// The spec of the folder right below /run/user/<uid>/gvfs/ that holds `path`.
std::optional<MountSpec> mountSpecHolding(const std::filesystem::path& path) {
    std::vector<std::string> parts;
    for (const auto& part : paths::standardized(path))
        parts.push_back(part.native());
    const bool isBelowGvfs = parts.size() >= 6 && parts[0] == "/" && parts[1] == "run" &&
                             parts[2] == "user" && !parts[3].empty() &&
                             std::all_of(parts[3].begin(), parts[3].end(),
                                         [](char c) { return c >= '0' && c <= '9'; }) &&
                             parts[4] == "gvfs";
    if (!isBelowGvfs) return std::nullopt;
    const std::string& name = parts[5];
    const auto colon = name.find(':');
    if (colon == std::string::npos || colon == 0) return std::nullopt;
    MountSpec spec{name.substr(0, colon), {}};
    std::string_view rest = std::string_view(name).substr(colon + 1);
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        const std::string_view item = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        const auto equals = item.find('=');
        if (equals == std::string_view::npos) return std::nullopt;
        const auto value = fileurls::percentDecoded(item.substr(equals + 1));
        if (!value) return std::nullopt;
        spec.items[std::string(item.substr(0, equals))] = *value;
    }
    return spec;
}

// "user@host:port", each part escaped where it needs to be; SMB puts its domain before the
// user, joined by ";".
std::string authority(const MountSpec& spec, const std::string& hostKey) {
    std::string user = fileurls::percentEncoded(spec.value("user"), ":@;/");
    const std::string domain = spec.value("domain");
    if (!domain.empty() && !user.empty()) {
        user = fileurls::percentEncoded(domain, ":@;/") + ";" + user;
    }
    std::string host = fileurls::percentEncoded(spec.value(hostKey), "/@[]");
    // An IPv6 address is bracketed in a URI.
    if (host.find(':') != std::string::npos) host = "[" + host + "]";
    const std::string port = spec.value("port");
    return (user.empty() ? "" : user + "@") + host + (port.empty() ? "" : ":" + port);
}

// The server's folder that the location stands for, with the slash that ends a folder.
std::string prefixFolder(const MountSpec& spec) {
    std::string prefix = spec.value("prefix");
    if (prefix.empty() || prefix.front() != '/') prefix.insert(0, "/");
    if (prefix.back() != '/') prefix.push_back('/');
    return fileurls::percentEncoded(prefix);
}

std::string folder(const std::string& name) {
    return "/" + fileurls::percentEncoded(name, "/") + "/";
}

}  // namespace

std::optional<std::string> gvfsMountUri(const std::filesystem::path& path) {
    const auto spec = mountSpecHolding(path);
    if (!spec) return std::nullopt;
    const auto has = [&](const char* key) { return !spec->value(key).empty(); };
    const std::string& type = spec->type;
    if (type == "smb-share" && has("server") && has("share")) {
        return "smb://" + authority(*spec, "server") + folder(spec->value("share"));
    }
    if (type == "afp-volume" && has("host") && has("volume")) {
        return "afp://" + authority(*spec, "host") + folder(spec->value("volume"));
    }
    if (!has("host")) return std::nullopt;
    if (type == "dav") {
        const char* scheme = spec->value("ssl") == "true" ? "davs://" : "dav://";
        return scheme + authority(*spec, "host") + prefixFolder(*spec);
    }
    if (type == "sftp" || type == "ftp" || type == "ftps" || type == "nfs") {
        return type + "://" + authority(*spec, "host") + prefixFolder(*spec);
    }
    return std::nullopt;
}

}  // namespace quillstow
