#include "support/Json.hpp"

#include "support/Error.hpp"

namespace quillstow::json {

std::string write(const Value& value) {
    // nlohmann's object is an ordered map, so keys come out sorted.
    const std::string plain = value.dump(2, ' ', false, Value::error_handler_t::replace);
    // A "/" can only stand inside a string in JSON text, where "\/" means the same.
    std::string escaped;
    escaped.reserve(plain.size() + plain.size() / 16);
    for (char c : plain) {
        if (c == '/') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

Value read(std::string_view text) {
    try {
        return Value::parse(text);
    } catch (const Value::exception& e) {
        failDecoding(std::string("The data isn't valid JSON: ") + e.what());
    }
}

namespace {

constexpr std::string_view decodingSentence =
    "The data couldn't be read because it isn't in the correct format: ";

}  // namespace

void failDecoding(const std::string& what) {
    throw Failure(
        Error{std::string(errors::decodingDomain), 1, std::string(decodingSentence) + what});
}

std::string decodingReason(const Error& error) {
    std::string_view reason = error.description;
    if (reason.starts_with(decodingSentence)) reason.remove_prefix(decodingSentence.size());
    return std::string(reason);
}

}  // namespace quillstow::json
