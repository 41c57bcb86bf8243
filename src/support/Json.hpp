#pragma once

// The JSON writer and reader of the system. Written JSON is pretty-printed with sorted keys,
// and "/" is written "\/", the shape every file of the system has.

#include <functional>
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

// An object written member by member, in the shape write() gives the whole: a document of a
// million members is never held as a tree of values, which takes several times its text.
class ObjectWriter {
  public:
    // Members must come in the order write() sorts keys in (byte order), as a std::map gives.
    void add(std::string_view key, const Value& value);
    std::string finish() &&;

  private:
    std::string text_ = "{";
    bool empty_ = true;
};

// Hands each member of the object in `text` to `take`, in order, and drops it: the whole
// document is never built. Throws the decoding failure when the text isn't a JSON object, and
// whatever `take` throws.
void readMembers(std::string_view text,
                 const std::function<void(const std::string& key, Value&& value)>& take);

// Throws Failure of the domain "Decoding": a malformed, mistyped or incomplete document.
[[noreturn]] void failDecoding(const std::string& what);

// What a decoding failure says was wrong, without the sentence that every one begins with.
std::string decodingReason(const Error& error);

}  // namespace quillstow::json
