#include "model/KeptValues.hpp"

namespace quillstow {

void KeptValues::keep(std::string key, json::Value value) {
    values_[std::move(key)] = Kept{std::move(value), json::Value()};
}

void KeptValues::settle(const json::Value& fields) {
    for (auto& [key, kept] : values_) {
        const auto field = fields.find(key);
        kept.readAs = field == fields.end() ? json::Value() : *field;
    }
}

void KeptValues::restoreInto(json::Value& fields) const {
    for (const auto& [key, kept] : values_) {
        if (fieldIsAsRead(fields, key, kept)) fields[key] = kept.value;
    }
}

void KeptValues::forgetOverwritten(const json::Value& fields) {
    std::erase_if(values_, [&](const auto& entry) {
        return !fieldIsAsRead(fields, entry.first, entry.second);
    });
}

bool KeptValues::fieldIsAsRead(const json::Value& fields, const std::string& key,
                               const Kept& kept) {
    const auto field = fields.find(key);
    return field == fields.end() ? kept.readAs.is_null() : *field == kept.readAs;
}

}  // namespace quillstow
