#include "PrivateBus.hpp"

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>

namespace quillstow::testing {

PrivateBus::PrivateBus(std::function<void(sd_bus*)> setUp) {
    if (::access("/usr/bin/dbus-daemon", X_OK) != 0) {
        whyNot_ = "no dbus-daemon here";
        return;
    }
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        whyNot_ = "no pipe";
        return;
    }
    daemon_ = ::fork();
    if (daemon_ == 0) {
        ::dup2(pipeFds[1], 3);
        (void)::freopen("/dev/null", "w", stderr);
        ::execl("/usr/bin/dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile",
                "--print-address=3", nullptr);
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    char buffer[512] = {};
    const ssize_t length = ::read(pipeFds[0], buffer, sizeof buffer - 1);
    ::close(pipeFds[0]);
    if (length <= 0) {
        whyNot_ = "dbus-daemon printed no address";
        return;
    }
    address_ = std::string(buffer, std::size_t(length));
    while (!address_.empty() && address_.back() == '\n')
        address_.pop_back();
    service_ = std::thread([this, setUp = std::move(setUp)] { serve(setUp); });
    while (!ready_)
        std::this_thread::yield();
}

PrivateBus::~PrivateBus() {
    stop_ = true;
    if (service_.joinable()) service_.join();
    if (daemon_ > 0) {
        ::kill(daemon_, SIGTERM);
        ::waitpid(daemon_, nullptr, 0);
    }
}

void PrivateBus::serve(const std::function<void(sd_bus*)>& setUp) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_address(bus, address_.c_str());
    sd_bus_set_bus_client(bus, 1);
    sd_bus_start(bus);
    setUp(bus);
    ready_ = true;
    while (!stop_) {
        if (sd_bus_process(bus, nullptr) > 0) continue;
        sd_bus_wait(bus, 20'000);
    }
    sd_bus_flush_close_unref(bus);
}

}  // namespace quillstow::testing
