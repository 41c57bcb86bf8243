#include "app/UpdateFeed.hpp"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <vector>

namespace quillstow::shell {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::vector<long> numbersOf(std::string_view version) {
    std::vector<long> numbers;
    while (!version.empty()) {
        const auto dot = version.find('.');
        const std::string_view part = version.substr(0, dot);
        long number = 0;
        std::from_chars(part.data(), part.data() + part.size(), number);
        numbers.push_back(number);
        if (dot == std::string_view::npos) break;
        version.remove_prefix(dot + 1);
    }
    return numbers;
}

// The host of "scheme://host[:port]/…", brackets of an IPv6 address kept.
std::string_view hostOf(std::string_view url) {
    const auto start = url.find("://");
    if (start == std::string_view::npos) return {};
    std::string_view rest = url.substr(start + 3);
    rest = rest.substr(0, rest.find_first_of("/?#"));
    if (const auto at = rest.rfind('@'); at != std::string_view::npos) rest.remove_prefix(at + 1);
    if (startsWith(rest, "[")) return rest.substr(0, rest.find(']') + 1);
    return rest.substr(0, rest.find(':'));
}

}  // namespace

std::optional<Release> parseReleaseFeed(std::string_view body) {
    const auto feed = nlohmann::json::parse(body, nullptr, false);
    if (!feed.is_object()) return std::nullopt;
    const auto version = feed.find("version");
    const auto page = feed.find("releasePage");
    if (version == feed.end() || page == feed.end() || !version->is_string() || !page->is_string())
        return std::nullopt;
    Release release{version->get<std::string>(), page->get<std::string>()};
    if (release.version.empty() || !isAllowedFeedAddress(release.releasePage, false))
        return std::nullopt;
    return release;
}

int compareVersions(std::string_view a, std::string_view b) {
    const auto splitA = a.find('-');
    const auto splitB = b.find('-');
    std::vector<long> numbersA = numbersOf(a.substr(0, splitA));
    std::vector<long> numbersB = numbersOf(b.substr(0, splitB));
    const std::size_t length = std::max(numbersA.size(), numbersB.size());
    numbersA.resize(length, 0);
    numbersB.resize(length, 0);
    if (numbersA != numbersB) return numbersA < numbersB ? -1 : 1;
    const bool preA = splitA != std::string_view::npos;
    const bool preB = splitB != std::string_view::npos;
    if (preA != preB) return preA ? -1 : 1;
    if (!preA) return 0;
    return a.substr(splitA).compare(b.substr(splitB)) < 0   ? -1
           : a.substr(splitA).compare(b.substr(splitB)) > 0 ? 1
                                                            : 0;
}

bool isAllowedFeedAddress(std::string_view url, bool allowLoopbackHttp) {
    if (startsWith(url, "https://")) return !hostOf(url).empty();
    if (!startsWith(url, "http://") || !allowLoopbackHttp) return false;
    const std::string_view host = hostOf(url);
    const bool isIPv4Loopback =
        startsWith(host, "127.") && host.find_first_not_of("0123456789.") == std::string_view::npos;
    return host == "localhost" || host == "[::1]" || isIPv4Loopback;
}

double secondsUntilNextCheck(double now, std::optional<double> lastCheck, double interval) {
    if (!lastCheck) return 0.0;
    return std::max(0.0, *lastCheck + interval - now);
}

}  // namespace quillstow::shell
