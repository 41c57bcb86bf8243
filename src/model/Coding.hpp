#pragma once

// Helpers for the JSON coding of the records: reading of required and optional keys, and
// enumerations by their JSON strings. Every failure of a value throws the decoding Failure;
// FieldReader turns such a failure into a default where a record can do without the value,
// so that one odd value never costs the rest of what the user set up.

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/KeptValues.hpp"
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

// Decodes a case of the enumeration, for FieldReader.
template <typename Enum, std::size_t Count>
auto caseOf(const EnumNames<Enum, Count>& names) {
    return [&names](const Value& value, const char* key) { return toEnum(names, value, key); };
}

// What reading found that it could not use, a line each that says where: for the log.
using DecodingNotes = std::vector<std::string>;

// Reads the fields of one record. A field the record can't do without fails it as a whole;
// any other falls back to a default when its value can't be used, and that value is kept, as
// is every key the record doesn't know, for the version that wrote them.
class FieldReader {
  public:
    // Fails unless `value` is an object. `where` begins each note ("pair 2"); notes may be null.
    FieldReader(const Value& value, std::string where, DecodingNotes* notes);

    template <typename Decode>
    decltype(auto) required(const char* key, Decode decode) {
        return decode(coding::required(object_, use(key)), key);
    }

    // Nothing when the key is missing or null, or when its value can't be used.
    template <typename Decode>
    auto optional(const char* key, Decode decode)
        -> std::optional<std::decay_t<decltype(decode(std::declval<const Value&>(), key))>> {
        const Value* value = coding::optional(object_, use(key));
        if (!value) return std::nullopt;
        try {
            return decode(*value, key);
        } catch (const Failure& failure) {
            kept_.keep(key, *value);
            note("the default stands in for a value it can't use: " +
                 json::decodingReason(failure.error()));
            return std::nullopt;
        }
    }

    // A key the record needs but can do without: missing, it gives the fallback too.
    template <typename T, typename Decode>
    T orDefault(const char* key, T fallback, Decode decode) {
        if (!coding::optional(object_, key)) {
            note(std::string("the default stands in for the missing key \"") + key + "\"");
        }
        return optional(key, decode).value_or(std::move(fallback));
    }

    // The values kept, with every key not asked for; `fields` is the record's own encoding.
    KeptValues kept(const Value& fields);

  private:
    const char* use(const char* key);
    void note(const std::string& what);

    const Value& object_;
    std::string where_;
    DecodingNotes* notes_;
    std::vector<std::string_view> used_;
    KeptValues kept_;
};

// Forgets the kept values of a record whose field the program has set since it was read, so
// that a later return to the old value writes that value and not the kept one.
template <typename Record>
void forgetOverwrittenValues(Record& record) {
    KeptValues kept = std::exchange(record.keptValues, {});
    kept.forgetOverwritten(toJson(record));
    record.keptValues = std::move(kept);
}

Value fromDate(Date date);
Value fromFileUrl(const std::filesystem::path& path);

}  // namespace quillstow::coding
