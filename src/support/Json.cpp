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

void ObjectWriter::add(std::string_view key, const Value& value) {
    text_ += empty_ ? "\n  " : ",\n  ";
    empty_ = false;
    text_ += write(Value(key));
    text_ += ": ";
    // A raw line break only stands between tokens in written JSON, never inside a string, so
    // indenting every line nests the member's text one level down.
    for (char c : write(value)) {
        text_ += c;
        if (c == '\n') text_ += "  ";
    }
}

std::string ObjectWriter::finish() && {
    text_ += empty_ ? "}" : "\n}";
    return std::move(text_);
}

void readMembers(std::string_view text,
                 const std::function<void(const std::string& key, Value&& value)>& take) {
    using Event = Value::parse_event_t;
    bool isObject = false;
    std::string key;
    // Members of the top object arrive at depth 1: a key, then its value whole (a plain value,
    // or an object or array at its end). Returning false drops the value from the document.
    const Value::parser_callback_t member = [&](int depth, Event event, Value& parsed) {
        if (depth == 0 && event == Event::object_start) isObject = true;
        if (depth != 1 || !isObject) return true;
        if (event == Event::key) {
            key = parsed.get<std::string>();
            return true;
        }
        if (event == Event::value || event == Event::object_end || event == Event::array_end) {
            take(key, std::move(parsed));
            return false;
        }
        return true;
    };
    try {
        // What remains is the top object emptied of its members.
        [[maybe_unused]] const Value emptied = Value::parse(text, member);
    } catch (const Value::exception& e) {
        failDecoding(std::string("The data isn't valid JSON: ") + e.what());
    }
    if (!isObject) failDecoding("Expected an object.");
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
