#include "support/ByteCount.hpp"

#include <array>
#include <cmath>
#include <cstdio>

namespace quillstow {

namespace {

struct Unit {
    const char* name;
    double size;
    int decimals;
};

constexpr std::array<Unit, 6> units{{
    {"KB", 1e3, 0},
    {"MB", 1e6, 1},
    {"GB", 1e9, 2},
    {"TB", 1e12, 2},
    {"PB", 1e15, 2},
    {"EB", 1e18, 2},
}};

std::string withoutTrailingZeros(std::string number) {
    if (number.find('.') == std::string::npos) return number;
    while (number.back() == '0')
        number.pop_back();
    if (number.back() == '.') number.pop_back();
    return number;
}

std::string magnitudeText(std::uint64_t bytes) {
    if (bytes == 0) return "Zero KB";
    if (bytes == 1) return "1 byte";
    if (bytes < 1000) return std::to_string(bytes) + " bytes";

    for (std::size_t i = 0; i < units.size(); ++i) {
        const Unit& unit = units[i];
        const double scale = std::pow(10.0, unit.decimals);
        const double rounded = std::round(double(bytes) / unit.size * scale) / scale;
        // 999,999 bytes round to 1,000 KB, which reads better as 1 MB.
        if (rounded >= 1000.0 && i + 1 < units.size()) continue;
        char text[48];
        std::snprintf(text, sizeof text, "%.*f", unit.decimals, rounded);
        return withoutTrailingZeros(text) + " " + unit.name;
    }
    return {};
}

}  // namespace

std::string formatByteCount(std::int64_t bytes) {
    if (bytes < 0) return "-" + magnitudeText(std::uint64_t(0) - std::uint64_t(bytes));
    return magnitudeText(std::uint64_t(bytes));
}

}  // namespace quillstow
