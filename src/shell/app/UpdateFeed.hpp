#pragma once

// What the update reminder reads and decides, apart from the network: the release feed, the
// comparison of versions, when the next scheduled check is due, and which addresses it may
// read from at all.
//
// Pure; any thread.

#include <optional>
#include <string>
#include <string_view>

namespace quillstow::shell {

struct Release {
    std::string version;
    // Where the user reads about it and gets it; never downloaded by the program.
    std::string releasePage;

    bool operator==(const Release&) const = default;
};

// The feed is a JSON object: {"version": "0.2.0", "releasePage": "https://…"}. Anything else,
// or a release page that isn't HTTPS, is nothing.
std::optional<Release> parseReleaseFeed(std::string_view body);

// Dotted numbers compared part by part, a missing part as 0 ("1.2" == "1.2.0"); what follows
// a "-" ranks below the plain version ("1.0-rc1" < "1.0"). Answers <0, 0 or >0.
int compareVersions(std::string_view a, std::string_view b);

// HTTPS only. Plain HTTP only to a loopback address, and only when the caller allows it: the
// tests' local feed.
bool isAllowedFeedAddress(std::string_view url, bool allowLoopbackHttp);

// Seconds until the next scheduled check: at once when none was made, else one interval after
// the last (never negative).
double secondsUntilNextCheck(double now, std::optional<double> lastCheck, double interval);

}  // namespace quillstow::shell
