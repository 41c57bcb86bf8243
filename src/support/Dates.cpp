#include "support/Dates.hpp"

#include <cstdio>

namespace quillstow::dates {

using namespace std::chrono;

std::string formatISO8601(Date date) {
    const auto seconds = floor<std::chrono::seconds>(date);
    const auto days = floor<std::chrono::days>(seconds);
    const year_month_day ymd{days};
    const hh_mm_ss time{seconds - days};
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(ymd.year()),
                  unsigned(ymd.month()), unsigned(ymd.day()), int(time.hours().count()),
                  int(time.minutes().count()), int(time.seconds().count()));
    return text;
}

namespace {

// Reads exactly `width` decimal digits at `position`.
std::optional<int> digits(std::string_view text, std::size_t position, std::size_t width) {
    if (position + width > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = position; i < position + width; ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

bool hasCharacter(std::string_view text, std::size_t position, char expected) {
    return position < text.size() && text[position] == expected;
}

}  // namespace

std::optional<Date> parseISO8601(std::string_view text) {
    // YYYY-MM-DDThh:mm:ss then Z or +hh:mm / -hh:mm
    const auto yearValue = digits(text, 0, 4);
    const auto monthValue = digits(text, 5, 2);
    const auto dayValue = digits(text, 8, 2);
    const auto hourValue = digits(text, 11, 2);
    const auto minuteValue = digits(text, 14, 2);
    const auto secondValue = digits(text, 17, 2);
    if (!yearValue || !monthValue || !dayValue || !hourValue || !minuteValue || !secondValue ||
        !hasCharacter(text, 4, '-') || !hasCharacter(text, 7, '-') ||
        !hasCharacter(text, 10, 'T') || !hasCharacter(text, 13, ':') ||
        !hasCharacter(text, 16, ':')) {
        return std::nullopt;
    }
    const year_month_day ymd{year{*yearValue}, month{unsigned(*monthValue)},
                             day{unsigned(*dayValue)}};
    if (!ymd.ok() || *hourValue > 23 || *minuteValue > 59 || *secondValue > 59) {
        return std::nullopt;
    }

    minutes offset{0};
    const std::string_view zone = text.substr(19);
    if (zone == "Z") {
        // UTC
    } else if (zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':') {
        const auto offsetHours = digits(zone, 1, 2);
        const auto offsetMinutes = digits(zone, 4, 2);
        if (!offsetHours || !offsetMinutes || *offsetHours > 23 || *offsetMinutes > 59) {
            return std::nullopt;
        }
        offset = hours{*offsetHours} + minutes{*offsetMinutes};
        if (zone[0] == '-') offset = -offset;
    } else {
        return std::nullopt;
    }

    const sys_seconds utc =
        sys_days{ymd} + hours{*hourValue} + minutes{*minuteValue} + seconds{*secondValue} - offset;
    // A date is kept to the nanosecond, which reaches from 1677 to 2262; beyond, it can't be held.
    constexpr auto earliest = floor<seconds>(Date::min().time_since_epoch()) + seconds{1};
    constexpr auto latest = floor<seconds>(Date::max().time_since_epoch()) - seconds{1};
    if (utc.time_since_epoch() < earliest || utc.time_since_epoch() > latest) return std::nullopt;
    return Date{utc.time_since_epoch()};
}

double secondsSinceEpoch(Date date) {
    return duration<double>(date.time_since_epoch()).count();
}

Date fromSecondsSinceEpoch(double seconds) {
    constexpr double limit = 9.2e9;  // within the nanosecond range, either way
    if (!(seconds > -limit)) seconds = -limit;
    if (!(seconds < limit)) seconds = limit;
    return Date{duration_cast<nanoseconds>(duration<double>(seconds))};
}

}  // namespace quillstow::dates
