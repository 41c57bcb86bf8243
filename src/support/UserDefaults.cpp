#include "support/UserDefaults.hpp"

namespace quillstow {

std::int64_t UserDefaults::integer(const std::string& key) const {
    const auto stored = value(key);
    if (!stored) return 0;
    if (const auto* number = std::get_if<std::int64_t>(&*stored)) return *number;
    if (const auto* flag = std::get_if<bool>(&*stored)) return *flag ? 1 : 0;
    return 0;
}

bool UserDefaults::boolean(const std::string& key) const {
    const auto stored = value(key);
    if (!stored) return false;
    if (const auto* flag = std::get_if<bool>(&*stored)) return *flag;
    if (const auto* number = std::get_if<std::int64_t>(&*stored)) return *number != 0;
    return false;
}

std::optional<UserDefaults::Value> InMemoryUserDefaults::value(const std::string& key) const {
    std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

void InMemoryUserDefaults::setValue(const std::string& key, Value value) {
    std::lock_guard lock(mutex_);
    values_[key] = std::move(value);
}

void InMemoryUserDefaults::removeValue(const std::string& key) {
    std::lock_guard lock(mutex_);
    values_.erase(key);
}

}  // namespace quillstow
