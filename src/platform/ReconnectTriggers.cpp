#include "platform/ReconnectTriggers.hpp"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>

namespace quillstow {

namespace {

bool isFalse(sd_bus_message* message) {
    int value = 1;
    return sd_bus_message_read(message, "b", &value) >= 0 && value == 0;
}

}  // namespace

bool isNetworkUp(std::uint32_t state) {
    constexpr std::uint32_t unknown = 0;
    constexpr std::uint32_t connectedLocal = 50;
    return state == unknown || state >= connectedLocal;
}

DBusSignalTrigger::DBusSignalTrigger(Bus bus, std::vector<Rule> rules, IsGoAtStart isGoAtStart,
                                     std::optional<std::string> address)
    : bus_(bus),
      rules_(std::move(rules)),
      isGoAtStart_(std::move(isGoAtStart)),
      address_(std::move(address)) {}

DBusSignalTrigger::~DBusSignalTrigger() {
    stop();
}

sd_bus* DBusSignalTrigger::connect() const {
    sd_bus* bus = nullptr;
    if (address_) {
        if (sd_bus_new(&bus) < 0) return nullptr;
        if (sd_bus_set_address(bus, address_->c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
            sd_bus_start(bus) < 0) {
            sd_bus_unref(bus);
            return nullptr;
        }
        return bus;
    }
    const int result = bus_ == Bus::system ? sd_bus_open_system(&bus) : sd_bus_open_user(&bus);
    if (result < 0) return nullptr;
    sd_bus_set_method_call_timeout(bus, 1'000'000);
    return bus;
}

void DBusSignalTrigger::start(Fire fire) {
    if (listener_.isRunning()) return;
    sd_bus* bus = connect();
    if (!bus) return;
    fire_ = std::move(fire);
    listenings_.clear();
    for (const auto& rule : rules_)
        listenings_.push_back({&rule, &fire_});
    const auto onSignal = [](sd_bus_message* message, void* data, sd_bus_error*) {
        const auto* listening = static_cast<Listening*>(data);
        if (listening->rule->isGo(message)) (*listening->fire)();
        return 0;
    };
    for (auto& listening : listenings_)
        sd_bus_add_match(bus, nullptr, listening.rule->match.c_str(), onSignal, &listening);
    listener_.start([this, bus](int stopSignal) { listen(bus, stopSignal); });
}

void ListeningThread::start(std::function<void(int stopSignal)> body) {
    stopSignal_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    thread_ = std::thread([body = std::move(body), stopSignal = stopSignal_] { body(stopSignal); });
}

void ListeningThread::stop() {
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    (void)::write(stopSignal_, &one, sizeof one);
    thread_.join();
    ::close(stopSignal_);
    stopSignal_ = -1;
}

void DBusSignalTrigger::stop() {
    listener_.stop();
}

void DBusSignalTrigger::listen(sd_bus* bus, int stopSignal) {
    // Matches first, then the reading: a change in between is heard, not lost.
    if (isGoAtStart_ && isGoAtStart_(bus)) fire_();
    for (;;) {
        while (sd_bus_process(bus, nullptr) > 0) {
        }
        pollfd watched[2] = {{sd_bus_get_fd(bus), short(sd_bus_get_events(bus)), 0},
                             {stopSignal, POLLIN, 0}};
        std::uint64_t timeout = 0;
        int wait = -1;
        if (sd_bus_get_timeout(bus, &timeout) >= 0 && timeout != UINT64_MAX) wait = 1000;
        if (::poll(watched, 2, wait) < 0) continue;
        if (watched[1].revents & POLLIN) break;
        if (watched[0].revents & (POLLHUP | POLLERR)) break;
    }
    sd_bus_flush_close_unref(bus);
}

std::unique_ptr<DBusSignalTrigger> makeWakeTrigger(std::optional<std::string> address) {
    return std::make_unique<DBusSignalTrigger>(
        DBusSignalTrigger::Bus::system,
        std::vector<DBusSignalTrigger::Rule>{
            {"type='signal',interface='org.freedesktop.login1.Manager',member='PrepareForSleep'",
             isFalse}},
        nullptr, std::move(address));
}

std::unique_ptr<DBusSignalTrigger> makeScreensWakeTrigger(std::optional<std::string> address) {
    return std::make_unique<DBusSignalTrigger>(
        DBusSignalTrigger::Bus::session,
        std::vector<DBusSignalTrigger::Rule>{
            {"type='signal',interface='org.freedesktop.ScreenSaver',member='ActiveChanged'",
             isFalse},
            {"type='signal',interface='org.gnome.ScreenSaver',member='ActiveChanged'", isFalse}},
        nullptr, std::move(address));
}

std::unique_ptr<DBusSignalTrigger> makeNetworkUpTrigger(std::optional<std::string> address) {
    const auto isUp = [](sd_bus_message* message) {
        std::uint32_t state = 0;
        return sd_bus_message_read(message, "u", &state) >= 0 && isNetworkUp(state);
    };
    // A start with the network up makes one attempt, as a change to up would.
    const auto isUpAtStart = [](sd_bus* bus) {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        std::uint32_t state = 0;
        const int result = sd_bus_get_property_trivial(
            bus, "org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager",
            "org.freedesktop.NetworkManager", "State", &error, 'u', &state);
        sd_bus_error_free(&error);
        return result >= 0 && isNetworkUp(state);
    };
    return std::make_unique<DBusSignalTrigger>(
        DBusSignalTrigger::Bus::system,
        std::vector<DBusSignalTrigger::Rule>{
            {"type='signal',interface='org.freedesktop.NetworkManager',member='StateChanged'",
             isUp}},
        isUpAtStart, std::move(address));
}

NetlinkAddressTrigger::~NetlinkAddressTrigger() {
    stop();
}

void NetlinkAddressTrigger::start(Fire fire) {
    if (listener_.isRunning()) return;
    const int route = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (route < 0) return;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (::bind(route, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(route);
        return;
    }
    listener_.start([route, fire = std::move(fire)](int stopSignal) {
        alignas(nlmsghdr) char buffer[8192];
        pollfd watched[2] = {{route, POLLIN, 0}, {stopSignal, POLLIN, 0}};
        for (;;) {
            if (::poll(watched, 2, -1) < 0) continue;
            if (watched[1].revents & POLLIN) break;
            const ssize_t length = ::recv(route, buffer, sizeof buffer, 0);
            if (length <= 0) continue;
            bool gained = false;
            int left = int(length);
            for (auto* header = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(header, left);
                 header = NLMSG_NEXT(header, left)) {
                gained = gained || header->nlmsg_type == RTM_NEWADDR;
            }
            if (gained) fire();
        }
        ::close(route);
    });
}

void NetlinkAddressTrigger::stop() {
    listener_.stop();
}

std::unique_ptr<ReconnectTrigger> makeNetworkTrigger() {
    sd_bus* bus = nullptr;
    int hasOwner = 0;
    if (sd_bus_open_system(&bus) >= 0) {
        sd_bus_set_method_call_timeout(bus, 1'000'000);
        sd_bus_message* reply = nullptr;
        if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "NameHasOwner", nullptr, &reply, "s",
                               "org.freedesktop.NetworkManager") >= 0) {
            if (sd_bus_message_read(reply, "b", &hasOwner) < 0) hasOwner = 0;
        }
        sd_bus_message_unref(reply);
        sd_bus_flush_close_unref(bus);
    }
    if (hasOwner) return makeNetworkUpTrigger();
    return std::make_unique<NetlinkAddressTrigger>();
}

}  // namespace quillstow
