// The triggers of a Linux desktop on a bus of the test's own: which signals mean "go", and the
// network's state read once at the start.

#include <gtest/gtest.h>
#include <sched.h>
#include <systemd/sd-bus.h>

#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "PrivateBus.hpp"
#include "Processes.hpp"
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

// In a network namespace of one thread of its own, so the machine's network is not touched.
TEST(NetlinkAddressTrigger, FiresWhenAnInterfaceGainsAnAddress) {
    const char* ip = "/usr/sbin/ip";
    if (!std::filesystem::exists(ip)) GTEST_SKIP() << ip << " is not installed";
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
        // Processes started from this thread share its namespace.
        ASSERT_EQ(runProcess({ip, "address", "add", "10.9.8.7/32", "dev", "lo"}).exitStatus, 0);
        EXPECT_TRUE(fires.reach(1));
        trigger.stop();
    });
    const std::string why = skipped.get_future().get();
    inNamespace.join();
    if (!why.empty()) GTEST_SKIP() << why;
}

}  // namespace
}  // namespace quillstow
