#pragma once

// User defaults kept in "defaults.json" in the settings folder: one JSON object of keys to
// integers, truth values and strings, written atomically on every change. A damaged file is
// logged and read as empty; the next change replaces it.
//
// Any thread may call; changes are serialised.

#include <filesystem>
#include <map>
#include <mutex>

#include "support/Logger.hpp"
#include "support/UserDefaults.hpp"

namespace quillstow {

class FileUserDefaults final : public UserDefaults {
  public:
    explicit FileUserDefaults(std::filesystem::path file);

    std::optional<Value> value(const std::string& key) const override;
    void setValue(const std::string& key, Value value) override;
    void removeValue(const std::string& key) override;

  private:
    void writeLocked() const;

    const std::filesystem::path file_;
    const Logger log_{"app"};
    mutable std::mutex mutex_;
    std::map<std::string, Value> values_;
};

}  // namespace quillstow
