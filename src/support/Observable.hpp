#pragma once

// A value that tells its observers of every change. Observers are called on the thread that
// changes the value, which for the observable state of this program is the main thread.
// A Subscription ends the observation when it goes, also after the observable has gone.

#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace quillstow {

class Subscription {
  public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { cancel(); }

    void cancel() {
        if (cancel_) std::exchange(cancel_, nullptr)();
    }

  private:
    std::function<void()> cancel_;
};

template <typename Value>
class Observers {
  public:
    using Observer = std::function<void(const Value&)>;

    [[nodiscard]] Subscription subscribe(Observer observer) {
        const int id = registry_->next++;
        registry_->observers.emplace(id, std::move(observer));
        std::weak_ptr<Registry> weak = registry_;
        return Subscription([weak, id] {
            if (auto registry = weak.lock()) registry->observers.erase(id);
        });
    }

    void notify(const Value& value) const {
        // A copy, so that an observer may unsubscribe itself or others while being told.
        const auto observers = registry_->observers;
        for (const auto& [id, observer] : observers) {
            if (registry_->observers.contains(id)) observer(value);
        }
    }

  private:
    struct Registry {
        std::map<int, Observer> observers;
        int next = 0;
    };
    std::shared_ptr<Registry> registry_ = std::make_shared<Registry>();
};

}  // namespace quillstow
