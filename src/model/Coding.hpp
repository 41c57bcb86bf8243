#pragma once

// Helpers for the JSON coding of the records: strict reading of required and optional keys,
// and enumerations by their JSON strings. Every failure throws the decoding Failure, so that a
// document with one bad value fails as a whole.

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "support/Base64.hpp"
#include "support/Dates.hpp"
#include "support/Json.hpp"
#include "support/Uuid.hpp"

namespace quillstow::coding {

using json::Value;

// A table of an enumeration's cases and their JSON strings, in the order of the cases.
template <typename Enum, std::size_t Count>
using EnumNames = std::array<std::pair<Enum, std::string_view>, Count>;

template <typename Enum, std::size_t Count>
std::string_view nameOf(const EnumNames<Enum, Count>& names, Enum value) {
    for (const auto& [candidate, name] : names) {
        if (candidate == value) return name;
    }
    return {};
}

template <typename Enum, std::size_t Count>
std::optional<Enum> caseNamed(const EnumNames<Enum, Count>& names, std::string_view text) {
    for (const auto& [candidate, name] : names) {
        if (name == text) return candidate;
    }
    return std::nullopt;
}

// The object itself, or a decoding failure naming `what`.
const Value& object(const Value& value, std::string_view what);
const Value& array(const Value& value, std::string_view what);

// The value at `key`; a missing key or null fails.
const Value& required(const Value& object, const char* key);
// The value at `key`, or nothing when the key is missing or null.
const Value* optional(const Value& object, const char* key);

bool toBool(const Value& value, const char* key);
std::int64_t toInteger(const Value& value, const char* key);
double toNumber(const Value& value, const char* key);
std::string toString(const Value& value, const char* key);
Uuid toUuid(const Value& value, const char* key);
Date toDate(const Value& value, const char* key);
std::filesystem::path toFileUrl(const Value& value, const char* key);
base64::Bytes toBytes(const Value& value, const char* key);

template <typename Enum, std::size_t Count>
Enum toEnum(const EnumNames<Enum, Count>& names, const Value& value, const char* key) {
    const std::string text = toString(value, key);
    const auto found = caseNamed(names, text);
    if (!found) json::failDecoding("unknown value \"" + text + "\" for \"" + key + "\"");
    return *found;
}

Value fromDate(Date date);
Value fromFileUrl(const std::filesystem::path& path);

}  // namespace quillstow::coding
