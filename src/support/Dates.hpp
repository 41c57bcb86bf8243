#pragma once

// Dates of the system: points in wall time, written as ISO 8601 in UTC without fractions.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow {

using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

namespace dates {

// "2026-03-01T09:30:00Z": UTC, to the second; fractions are cut, never rounded.
std::string formatISO8601(Date date);

// Reads "YYYY-MM-DDThh:mm:ssZ" or the same with a "+hh:mm"/"-hh:mm" offset. Anything else,
// including fractions, impossible calendar values and dates outside 1678...2261 (the range a
// date to the nanosecond can hold), gives nothing.
std::optional<Date> parseISO8601(std::string_view text);

// Seconds since the Unix epoch, with fractions.
double secondsSinceEpoch(Date date);
Date fromSecondsSinceEpoch(double seconds);

}  // namespace dates
}  // namespace quillstow
