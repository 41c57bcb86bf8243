#include "support/NotificationCenter.hpp"

namespace quillstow {

Subscription NotificationCenter::observe(const std::string& name, Observer observer) {
    return observers_[name].subscribe(std::move(observer));
}

void NotificationCenter::post(const std::string& name, const NotificationInfo& info) {
    const auto found = observers_.find(name);
    if (found != observers_.end()) found->second.notify(info);
}

}  // namespace quillstow
