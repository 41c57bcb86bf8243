#pragma once

// The JSON writer and reader of the system. Written JSON is pretty-printed with sorted keys,
// and "/" is written "\/", the shape every file of the system has.

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "support/Error.hpp"

namespace quillstow::json {

using Value = nlohmann::json;

// Two-space indentation, keys sorted, "/" escaped as "\/". Invalid UTF-8 in a string is
// written as U+FFFD instead of failing.
std::string write(const Value& value);

// Throws the decoding failure when the text isn't JSON.
Value read(std::string_view text);

// Throws Failure of the domain "Decoding": a malformed, mistyped or incomplete document.
[[noreturn]] void failDecoding(const std::string& what);

// What a decoding failure says was wrong, without the sentence that every one begins with.
std::string decodingReason(const Error& error);

}  // namespace quillstow::json
