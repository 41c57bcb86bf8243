#pragma once

// What a record read from a file could not use, kept as it stood so that saving writes it back
// for the version that wrote it: values this version can't read (a profile of a newer version,
// a count past 64 bits) and keys it doesn't know. A kept value is written back as long as its
// field still holds what reading made of it; once the program puts a value of its own there
// and saves, that value is written and the kept one forgotten.
//
// A plain value, copied with its record.

#include <map>
#include <string>

#include "support/Json.hpp"

namespace quillstow {

class KeptValues {
  public:
    // While reading: the value under `key` as it stood.
    void keep(std::string key, json::Value value);
    // After reading: notes what the record's own encoding holds for each kept key, so that a
    // later change of the field can be told.
    void settle(const json::Value& fields);
    // Puts each kept value into the record's encoding where its field still holds what
    // reading made of it.
    void restoreInto(json::Value& fields) const;
    // Forgets the values whose field the program has set since reading.
    void forgetOverwritten(const json::Value& fields);

    bool empty() const { return values_.empty(); }
    bool operator==(const KeptValues&) const = default;

  private:
    struct Kept {
        json::Value value;
        json::Value readAs;  // the field's encoding just after reading; null when it has none

        bool operator==(const Kept&) const = default;
    };

    static bool fieldIsAsRead(const json::Value& fields, const std::string& key, const Kept& kept);

    std::map<std::string, Kept> values_;
};

}  // namespace quillstow
