#include "model/FileUserDefaults.hpp"

#include <cstdint>

#include "support/AtomicFile.hpp"
#include "support/Json.hpp"

namespace quillstow {

namespace {

std::map<std::string, UserDefaults::Value> decode(const json::Value& document) {
    if (!document.is_object()) json::failDecoding("the defaults are not an object");
    std::map<std::string, UserDefaults::Value> values;
    for (const auto& [key, value] : document.items()) {
        if (value.is_boolean()) {
            values[key] = value.get<bool>();
        } else if (value.is_number_unsigned()) {
            // The reader takes every non-negative number for unsigned.
            const auto number = value.get<std::uint64_t>();
            if (number <= std::uint64_t(INT64_MAX)) values[key] = std::int64_t(number);
        } else if (value.is_number_integer()) {
            values[key] = value.get<std::int64_t>();
        } else if (value.is_string()) {
            values[key] = value.get<std::string>();
        }
        // Values of other kinds were not written by this program and are passed over.
    }
    return values;
}

}  // namespace

FileUserDefaults::FileUserDefaults(std::filesystem::path file) : file_(std::move(file)) {
    std::error_code missing;
    if (!std::filesystem::exists(file_, missing)) return;
    try {
        values_ = decode(json::read(atomicfile::read(file_)));
    } catch (const Failure& failure) {
        log_.error("Failed to load %{public}s: %{public}s", file_.filename().native(),
                   failure.error().description);
    }
}

std::optional<UserDefaults::Value> FileUserDefaults::value(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

void FileUserDefaults::setValue(const std::string& key, Value value) {
    std::lock_guard lock(mutex_);
    values_[key] = std::move(value);
    writeLocked();
}

void FileUserDefaults::removeValue(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (values_.erase(key) > 0) writeLocked();
}

void FileUserDefaults::writeLocked() const {
    json::Value document = json::Value::object();
    for (const auto& entry : values_) {
        std::visit([&](const auto& held) { document[entry.first] = held; }, entry.second);
    }
    try {
        atomicfile::write(file_, json::write(document));
    } catch (const Failure& failure) {
        log_.error("Failed to write %{public}s: %{public}s", file_.filename().native(),
                   failure.error().description);
    }
}

}  // namespace quillstow
