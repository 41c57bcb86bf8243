#pragma once

// A dbus-daemon of the test's own, and a thread that serves fake desktop services on it. The
// test sets the services up on the serving connection before the thread starts answering.

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

struct sd_bus;

namespace quillstow::testing {

class PrivateBus {
  public:
    // `setUp` adds the fake services' objects and names on the serving connection.
    explicit PrivateBus(std::function<void(sd_bus*)> setUp);
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    // Empty when no dbus-daemon could be started; the reason is then in whyNot().
    const std::string& address() const { return address_; }
    const std::string& whyNot() const { return whyNot_; }

  private:
    void serve(const std::function<void(sd_bus*)>& setUp);

    pid_t daemon_ = -1;
    std::string address_;
    std::string whyNot_;
    std::thread service_;
    std::atomic<bool> ready_{false};
    std::atomic<bool> stop_{false};
};

}  // namespace quillstow::testing
