#pragma once

// A small per-user key-value store for the few values that live outside the settings file:
// the tip counter and the per-pair catch-up flags. Any thread may call it.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

namespace quillstow {

class UserDefaults {
  public:
    using Value = std::variant<std::int64_t, bool, std::string>;

    virtual ~UserDefaults() = default;

    virtual std::optional<Value> value(const std::string& key) const = 0;
    virtual void setValue(const std::string& key, Value value) = 0;
    virtual void removeValue(const std::string& key) = 0;

    // 0 when absent or not an integer, as the platform's store answers.
    std::int64_t integer(const std::string& key) const;
    void setInteger(const std::string& key, std::int64_t value) { setValue(key, value); }

    // false when absent or not a truth value.
    bool boolean(const std::string& key) const;
    void setBoolean(const std::string& key, bool value) { setValue(key, value); }
};

class InMemoryUserDefaults final : public UserDefaults {
  public:
    std::optional<Value> value(const std::string& key) const override;
    void setValue(const std::string& key, Value value) override;
    void removeValue(const std::string& key) override;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, Value> values_;
};

}  // namespace quillstow
