#include "model/Coding.hpp"

#include <algorithm>
#include <limits>

#include "support/FileUrl.hpp"

namespace quillstow::coding {

namespace {

[[noreturn]] void failType(const char* key, const char* expected) {
    json::failDecoding(std::string("\"") + key + "\" is not " + expected);
}

}  // namespace

const Value& object(const Value& value, std::string_view what) {
    if (!value.is_object()) json::failDecoding(std::string(what) + " is not an object");
    return value;
}

const Value& array(const Value& value, std::string_view what) {
    if (!value.is_array()) json::failDecoding(std::string(what) + " is not an array");
    return value;
}

const Value& required(const Value& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        json::failDecoding(std::string("the key \"") + key + "\" is missing");
    }
    return *found;
}

const Value* optional(const Value& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return nullptr;
    return &*found;
}

bool toBool(const Value& value, const char* key) {
    if (!value.is_boolean()) failType(key, "a boolean");
    return value.get<bool>();
}

std::int64_t toInteger(const Value& value, const char* key) {
    if (value.is_number_integer() && !value.is_number_unsigned()) return value.get<std::int64_t>();
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number <= std::uint64_t(std::numeric_limits<std::int64_t>::max())) {
            return std::int64_t(number);
        }
    }
    failType(key, "an integer in range");
}

double toNumber(const Value& value, const char* key) {
    if (!value.is_number()) failType(key, "a number");
    return value.get<double>();
}

std::string toString(const Value& value, const char* key) {
    if (!value.is_string()) failType(key, "a string");
    return value.get<std::string>();
}

Uuid toUuid(const Value& value, const char* key) {
    const auto uuid = Uuid::parse(toString(value, key));
    if (!uuid) failType(key, "a UUID");
    return *uuid;
}

Date toDate(const Value& value, const char* key) {
    const auto date = dates::parseISO8601(toString(value, key));
    if (!date) failType(key, "an ISO 8601 date");
    return *date;
}

std::filesystem::path toFileUrl(const Value& value, const char* key) {
    const auto path = fileurls::toPath(toString(value, key));
    if (!path) failType(key, "an absolute file URL");
    return *path;
}

base64::Bytes toBytes(const Value& value, const char* key) {
    const auto bytes = base64::decode(toString(value, key));
    if (!bytes) failType(key, "base64 data");
    return *bytes;
}

FieldReader::FieldReader(const Value& value, std::string where, DecodingNotes* notes)
    : object_(object(value, where)), where_(std::move(where)), notes_(notes) {}

const char* FieldReader::use(const char* key) {
    used_.emplace_back(key);
    return key;
}

void FieldReader::note(const std::string& what) {
    if (notes_) notes_->push_back(where_ + ": " + what);
}

KeptValues FieldReader::kept(const Value& fields) {
    for (const auto& [key, value] : object_.items()) {
        if (std::find(used_.begin(), used_.end(), key) != used_.end()) continue;
        kept_.keep(key, value);
        note("a key it doesn't know is kept: \"" + key + "\"");
    }
    kept_.settle(fields);
    return std::move(kept_);
}

Value fromDate(Date date) {
    return dates::formatISO8601(date);
}

Value fromFileUrl(const std::filesystem::path& path) {
    return fileurls::fromPath(path);
}

}  // namespace quillstow::coding
