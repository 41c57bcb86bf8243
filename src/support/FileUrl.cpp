#include "support/FileUrl.hpp"

namespace quillstow::fileurls {

namespace {

constexpr std::string_view scheme = "file://";

// Unreserved and sub-delimiter characters, ":", "@" and "/" stay as they are in a path.
bool staysLiteral(unsigned char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '-':
        case '.':
        case '_':
        case '~':
        case '!':
        case '$':
        case '&':
        case '\'':
        case '(':
        case ')':
        case '*':
        case '+':
        case ',':
        case ';':
        case '=':
        case ':':
        case '@':
        case '/':
            return true;
        default:
            return false;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

std::string percentEncoded(std::string_view path) {
    return percentEncoded(path, "");
}

std::string percentEncoded(std::string_view text, std::string_view alsoEscaped) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (unsigned char c : text) {
        if (staysLiteral(c) && alsoEscaped.find(char(c)) == std::string_view::npos) {
            encoded.push_back(char(c));
        } else {
            encoded.push_back('%');
            encoded.push_back(hex[c >> 4]);
            encoded.push_back(hex[c & 0xF]);
        }
    }
    return encoded;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        const char byte = char(high * 16 + low);
        if (byte == '\0') return std::nullopt;
        decoded.push_back(byte);
        i += 2;
    }
    return decoded;
}

std::string fromPath(const std::filesystem::path& path) {
    const std::string native =
        path.is_absolute() ? path.native() : std::filesystem::absolute(path).native();
    return std::string(scheme) + percentEncoded(native);
}

std::optional<std::filesystem::path> toPath(std::string_view url) {
    if (!url.starts_with(scheme)) return std::nullopt;
    std::string_view rest = url.substr(scheme.size());
    if (rest.starts_with("localhost/")) rest.remove_prefix(std::string_view("localhost").size());
    if (!rest.starts_with('/')) return std::nullopt;
    // A query or fragment has no place in a file URL of ours.
    if (rest.find_first_of("?#") != std::string_view::npos) return std::nullopt;

    // Anything else must have been escaped: a blank, a control character, raw UTF-8.
    for (const char c : rest) {
        if (c != '%' && !staysLiteral(static_cast<unsigned char>(c))) return std::nullopt;
    }
    const auto decoded = percentDecoded(rest);
    if (!decoded) return std::nullopt;
    return std::filesystem::path(*decoded);
}

}  // namespace quillstow::fileurls
