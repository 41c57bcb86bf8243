#pragma once

// Base64 of RFC 4648 with padding, the form bytes take in the system's JSON files.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow::base64 {

using Bytes = std::vector<std::uint8_t>;

std::string encode(const Bytes& bytes);

// Strict: the length is a multiple of four, padding only at the end, no other characters.
std::optional<Bytes> decode(std::string_view text);

}  // namespace quillstow::base64
