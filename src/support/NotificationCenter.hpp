#pragma once

// In-process notifications by name, with a small map of values: how one part of the program
// tells others, which it doesn't know, that something happened ("io.quillstow.profileSuggested").
// Observers are told on the main thread, in the order they subscribed.
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <variant>

#include "support/Observable.hpp"
#include "support/Uuid.hpp"

namespace quillstow {

using NotificationValue = std::variant<std::string, std::int64_t, bool, Uuid>;
using NotificationInfo = std::map<std::string, NotificationValue>;

class NotificationCenter {
  public:
    using Observer = std::function<void(const NotificationInfo&)>;

    [[nodiscard]] Subscription observe(const std::string& name, Observer observer);
    void post(const std::string& name, const NotificationInfo& info = {});

  private:
    std::map<std::string, Observers<NotificationInfo>> observers_;
};

}  // namespace quillstow
