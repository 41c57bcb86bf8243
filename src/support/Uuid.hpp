#pragma once

// Identifiers: random UUIDs, written in the canonical upper-case form.

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow {

class Uuid {
  public:
    // The nil UUID; use random() for a fresh identifier.
    Uuid() = default;

    static Uuid random();

    // Reads the 36-character form in either case; anything else gives nothing.
    static std::optional<Uuid> parse(std::string_view text);

    // "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
    std::string text() const;

    auto operator<=>(const Uuid&) const = default;

    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  private:
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace quillstow

template <>
struct std::hash<quillstow::Uuid> {
    std::size_t operator()(const quillstow::Uuid& uuid) const noexcept {
        std::size_t value = 0;
        for (auto byte : uuid.bytes())
            value = value * 131 + byte;
        return value;
    }
};
