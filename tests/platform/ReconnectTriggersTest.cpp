// The triggers of a Linux desktop on a bus of the test's own: which signals mean "go", and the
// network's state read once at the start.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "PrivateBus.hpp"
#include "platform/ReconnectTriggers.hpp"

namespace quillstow {
namespace {

using namespace testing;

// Counts what a trigger fires, on its own thread.
class Fires {
  public:
    ReconnectTrigger::Fire counter() {
        return [this] {
            std::lock_guard lock(mutex_);
            ++count_;
            changed_.notify_all();
        };
    }
    // Waits (in real time: the trigger's thread reads a real socket) until `count` is reached.
    bool reach(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return count_ >= count; });
    }
    int count() {
        std::lock_guard lock(mutex_);
        return count_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

class ReconnectTriggersTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bus_ = std::make_unique<PrivateBus>([this](sd_bus* bus) { serve(bus); });
        if (bus_->address().empty()) GTEST_SKIP() << bus_->whyNot();
        sd_bus_new(&sender_);
        sd_bus_set_address(sender_, bus_->address().c_str());
        sd_bus_set_bus_client(sender_, 1);
        ASSERT_GE(sd_bus_start(sender_), 0);
    }
    void TearDown() override {
        if (sender_) sd_bus_flush_close_unref(sender_);
        bus_.reset();
    }

    template <typename Value>
    void send(const char* path, const char* interface, const char* member, const char* type,
              Value value) {
        ASSERT_GE(sd_bus_emit_signal(sender_, path, interface, member, type, value), 0);
        sd_bus_flush(sender_);
    }

    std::uint32_t networkState = 20;  // disconnected
    std::unique_ptr<PrivateBus> bus_;
    sd_bus* sender_ = nullptr;

  private:
    void serve(sd_bus* bus) {
        static const sd_bus_vtable manager[] = {SD_BUS_VTABLE_START(0),
                                                SD_BUS_PROPERTY("State", "u", nullptr, 0, 0),
                                                SD_BUS_VTABLE_END};
        sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/NetworkManager",
                                 "org.freedesktop.NetworkManager", manager, &networkState);
        sd_bus_request_name(bus, "org.freedesktop.NetworkManager", 0);
    }
};

TEST(NetworkState, UpWhenConnectedOrUnknown) {
    const struct {
        std::uint32_t state;
        bool up;
    } cases[] = {{0, true}, {20, false}, {40, false}, {50, true}, {60, true}, {70, true}};
    for (const auto& c : cases)
        EXPECT_EQ(isNetworkUp(c.state), c.up) << c.state;
}

TEST_F(ReconnectTriggersTest, EachFiresOnlyForItsSignalMeaningGo) {
    Fires wake, screens, network;
    auto wakeTrigger = makeWakeTrigger(bus_->address());
    auto screensTrigger = makeScreensWakeTrigger(bus_->address());
    auto networkTrigger = makeNetworkUpTrigger(bus_->address());
    wakeTrigger->start(wake.counter());
    screensTrigger->start(screens.counter());
    networkTrigger->start(network.counter());

    const char* login = "/org/freedesktop/login1";
    send(login, "org.freedesktop.login1.Manager", "PrepareForSleep", "b", 1);
    send(login, "org.freedesktop.login1.Manager", "PrepareForSleep", "b", 0);
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", "b", 1);
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", "b", 0);
    send("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", "b", 0);
    const char* manager = "/org/freedesktop/NetworkManager";
    send(manager, "org.freedesktop.NetworkManager", "StateChanged", "u", 20u);
    send(manager, "org.freedesktop.NetworkManager", "StateChanged", "u", 70u);

    ASSERT_TRUE(wake.reach(1));
    ASSERT_TRUE(screens.reach(2));
    ASSERT_TRUE(network.reach(1));
    // The last of these signals went through the same daemon after the ones counted; stopping
    // lets every listener process what it had before it ends.
    wakeTrigger->stop();
    screensTrigger->stop();
    networkTrigger->stop();
    EXPECT_EQ(wake.count(), 1) << "going to sleep is no wake";
    EXPECT_EQ(screens.count(), 2) << "both screen savers, waking only";
    EXPECT_EQ(network.count(), 1) << "disconnected is no network up";

    send(login, "org.freedesktop.login1.Manager", "PrepareForSleep", "b", 0);
    EXPECT_EQ(wake.count(), 1) << "nothing after stop";
}

TEST_F(ReconnectTriggersTest, TheNetworkFiresOnceAtTheStartWhenItIsAlreadyUp) {
    for (const std::uint32_t state : {20u, 70u}) {
        networkState = state;
        Fires network;
        auto trigger = makeNetworkUpTrigger(bus_->address());
        trigger->start(network.counter());
        if (isNetworkUp(state)) {
            EXPECT_TRUE(network.reach(1));
        }
        trigger->stop();
        EXPECT_EQ(network.count(), isNetworkUp(state) ? 1 : 0) << state;
    }
}

// Gives the loopback of the calling thread's network namespace one more address, as
// "ip address add 10.9.8.7/32 dev lo" would, and answers whether the kernel took it.
bool addAddressToLoopback() {
    const int route = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (route < 0) return false;
    struct {
        nlmsghdr header;
        ifaddrmsg address;
        alignas(NLMSG_ALIGNTO) char attributes[2 * RTA_SPACE(sizeof(in_addr))];
    } request{};
    request.header.nlmsg_type = RTM_NEWADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK;
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifaddrmsg));
    request.address.ifa_family = AF_INET;
    request.address.ifa_prefixlen = 32;
    request.address.ifa_index = ::if_nametoindex("lo");
    in_addr address{};
    ::inet_pton(AF_INET, "10.9.8.7", &address);
    for (const unsigned short type : {IFA_LOCAL, IFA_ADDRESS}) {
        auto* attribute = reinterpret_cast<rtattr*>(reinterpret_cast<char*>(&request) +
                                                    NLMSG_ALIGN(request.header.nlmsg_len));
        attribute->rta_type = type;
        attribute->rta_len = RTA_LENGTH(sizeof address);
        std::memcpy(RTA_DATA(attribute), &address, sizeof address);
        request.header.nlmsg_len =
            NLMSG_ALIGN(request.header.nlmsg_len) + RTA_SPACE(sizeof address);
    }
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    bool isTaken = false;
    if (::sendto(route, &request, request.header.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) >= 0) {
        alignas(nlmsghdr) char answer[1024];
        const ssize_t length = ::recv(route, answer, sizeof answer, 0);
        const auto* header = reinterpret_cast<const nlmsghdr*>(answer);
        isTaken = length >= ssize_t(NLMSG_LENGTH(sizeof(nlmsgerr))) &&
                  header->nlmsg_type == NLMSG_ERROR &&
                  static_cast<const nlmsgerr*>(NLMSG_DATA(header))->error == 0;
    }
    ::close(route);
    return isTaken;
}

// In a network namespace of one thread of its own, so the machine's network is not touched.
TEST(NetlinkAddressTrigger, FiresWhenAnInterfaceGainsAnAddress) {
    std::promise<std::string> skipped;
    Fires fires;
    std::thread inNamespace([&] {
        if (::unshare(CLONE_NEWNET) != 0) {
            skipped.set_value("no network namespace: " + std::string(std::strerror(errno)));
            return;
        }
        skipped.set_value("");
        NetlinkAddressTrigger trigger;
        trigger.start(fires.counter());
        EXPECT_EQ(fires.count(), 0);
        ASSERT_TRUE(addAddressToLoopback());
        EXPECT_TRUE(fires.reach(1));
        trigger.stop();
    });
    const std::string why = skipped.get_future().get();
    inNamespace.join();
    if (!why.empty()) GTEST_SKIP() << why;
}

}  // namespace
}  // namespace quillstow
