// The desktop's services over D-Bus, on a dbus-daemon of the test's own: fake UPower, power
// profiles, notification server and NetworkManager, and what our readings, notifications and
// reconnect triggers make of them. The route socket's trigger in a network namespace of its own.

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <future>
#include <map>
#include <mutex>
#include <semaphore>
#include <thread>

#include "PrivateBus.hpp"
#include "environment/Gates.hpp"
#include "platform/DesktopNotifications.hpp"
#include "platform/LinuxPowerReadings.hpp"
#include "platform/ReconnectTriggers.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;

// What a Notify call asked the server to show.
struct Shown {
    std::string application, icon, summary, body, sound, desktopEntry;
    std::uint32_t replaces = 0;
    std::vector<std::string> actions;
    bool operator==(const Shown&) const = default;
};

class DesktopServicesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bus_ = std::make_unique<PrivateBus>([this](sd_bus* bus) { serve(bus); });
        if (bus_->address().empty()) GTEST_SKIP() << bus_->whyNot();
    }

    void set(const std::string& property, const std::string& value) {
        std::lock_guard lock(mutex_);
        properties_[property] = value;
    }
    std::vector<Shown> shown() {
        std::lock_guard lock(mutex_);
        return shown_;
    }
    const std::string& address() const { return bus_->address(); }

  private:
    // Every property by its name, its type first: "b:1", "u:2", "d:29.4", "s:balanced".
    static int property(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                        void* self, sd_bus_error*) {
        auto& test = *static_cast<DesktopServicesTest*>(self);
        std::lock_guard lock(test.mutex_);
        const std::string& value = test.properties_.at(name);
        const std::string text = value.substr(2);
        if (value[0] == 'b') return sd_bus_message_append(reply, "b", int(text == "1"));
        if (value[0] == 'u') return sd_bus_message_append(reply, "u", std::stoul(text));
        if (value[0] == 'd') return sd_bus_message_append(reply, "d", std::stod(text));
        return sd_bus_message_append(reply, "s", text.c_str());
    }

    static int notify(sd_bus_message* call, void* self, sd_bus_error*) {
        auto& test = *static_cast<DesktopServicesTest*>(self);
        const char *application, *icon, *summary, *body;
        std::uint32_t replaces = 0;
        sd_bus_message_read(call, "susss", &application, &replaces, &icon, &summary, &body);
        Shown record{application, icon, summary, body, "", "", replaces, {}};
        char** actions = nullptr;
        sd_bus_message_read_strv(call, &actions);
        for (char** action = actions; action && *action; ++action) {
            record.actions.emplace_back(*action);
            std::free(*action);
        }
        std::free(actions);
        sd_bus_message_enter_container(call, 'a', "{sv}");
        while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
            const char *key = nullptr, *text = nullptr;
            sd_bus_message_read(call, "s", &key);
            const std::string hint(key);
            if (hint == "sound-name" || hint == "desktop-entry") {
                sd_bus_message_read(call, "v", "s", &text);
                (hint == "sound-name" ? record.sound : record.desktopEntry) = text;
            } else {
                sd_bus_message_skip(call, "v");
            }
            sd_bus_message_exit_container(call);
        }
        std::lock_guard lock(test.mutex_);
        test.shown_.push_back(record);
        const auto id = record.replaces != 0 ? record.replaces : std::uint32_t(test.shown_.size());
        return sd_bus_reply_method_return(call, "u", id);
    }

    // Every service answers for every property; each reads only its own.
    void serve(sd_bus* bus) {
        static const sd_bus_vtable properties[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY("OnBattery", "b", property, 0, 0),
            SD_BUS_PROPERTY("Type", "u", property, 0, 0),
            SD_BUS_PROPERTY("IsPresent", "b", property, 0, 0),
            SD_BUS_PROPERTY("Percentage", "d", property, 0, 0),
            SD_BUS_PROPERTY("ActiveProfile", "s", property, 0, 0),
            SD_BUS_PROPERTY("PerformanceDegraded", "s", property, 0, 0),
            SD_BUS_PROPERTY("State", "u", property, 0, 0),
            SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END};
        for (const auto& [path, interface] : std::map<const char*, const char*>{
                 {"/org/freedesktop/UPower", "org.freedesktop.UPower"},
                 {"/org/freedesktop/UPower/devices/DisplayDevice", "org.freedesktop.UPower.Device"},
                 // The older name of the profiles service, to check that it is found too.
                 {"/net/hadess/PowerProfiles", "net.hadess.PowerProfiles"},
                 {"/org/freedesktop/NetworkManager", "org.freedesktop.NetworkManager"},
                 {"/org/freedesktop/Notifications", "org.freedesktop.Notifications"}}) {
            sd_bus_add_object_vtable(bus, nullptr, path, interface, properties, this);
            sd_bus_request_name(bus, interface, 0);
        }
    }

    std::mutex mutex_;
    // A laptop on battery, disconnected.
    std::map<std::string, std::string> properties_{{"OnBattery", "b:1"},
                                                   {"Type", "u:2"},
                                                   {"IsPresent", "b:1"},
                                                   {"Percentage", "d:29.4"},
                                                   {"ActiveProfile", "s:balanced"},
                                                   {"PerformanceDegraded", "s:"},
                                                   {"State", "u:20"}};
    std::vector<Shown> shown_;
    std::unique_ptr<PrivateBus> bus_;
};

// Each row changes one property of the services as the row before left them.
TEST_F(DesktopServicesTest, PowerReadingsComeFromUPowerAndTheProfilesService) {
    const struct {
        const char *property, *value;
        std::optional<int> percent;
        bool isOnAC, isPowerSaver;
        ThermalState thermal;
    } cases[] = {
        {"Percentage", "d:29.4", 29, false, false, ThermalState::nominal},
        {"OnBattery", "b:0", 29, true, false, ThermalState::nominal},
        {"ActiveProfile", "s:power-saver", 29, true, true, ThermalState::nominal},
        {"PerformanceDegraded", "s:high-operating-temperature", 29, true, true,
         ThermalState::serious},
        {"PerformanceDegraded", "s:lap-detected", 29, true, true, ThermalState::nominal},
        {"Type", "u:1", std::nullopt, true, true, ThermalState::nominal},  // line power: no battery
    };
    const LinuxPowerReadings power(DBusConnection::openAddress(address()), "/no-sysfs-here");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.property) + " " + c.value);
        set(c.property, c.value);
        EXPECT_EQ(batteryPercent(power), c.percent);
        EXPECT_EQ(isOnACPower(power), c.isOnAC);
        EXPECT_EQ(power.isLowPowerModeEnabled(), c.isPowerSaver);
        EXPECT_EQ(power.thermalState(), c.thermal);
    }
}

TEST_F(DesktopServicesTest, ANotificationIsShownAsOursAndTheSummaryReplacesTheOneBefore) {
    ManualClock clock{0};
    VirtualMainQueue queue{clock};
    ManualWallClock wallClock{Date{std::chrono::seconds(1'800'000'000)}};
    DesktopNotifications notifications(queue, queue, wallClock,
                                       DBusConnection::openAddress(address()));
    notifications.deliver(
        {"error-1", "Backup Problem", "Work — 1 of 2 files couldn't be backed up."});
    const Shown problem{"Quillstow",
                        "io.quillstow.Quillstow",
                        "Backup Problem",
                        "Work — 1 of 2 files couldn't be backed up.",
                        "message-new-instant",
                        "io.quillstow.Quillstow",
                        0,
                        {"default", "Open Quillstow"}};
    ASSERT_EQ(shown(), std::vector<Shown>{problem});
    EXPECT_TRUE(notifications.hasShown(1));
    EXPECT_FALSE(notifications.hasShown(2));

    // The summary waits for its time; rescheduled, only the last is shown, in place of the last
    // one shown.
    const auto summary = [&](const std::string& body, std::chrono::hours in) {
        notifications.schedule({"quillstow-daily-summary", "Daily Backup Summary", body},
                               wallClock.now() + in);
    };
    summary("1 backup completed.", std::chrono::hours(3));
    queue.advance(3 * 3600 - 1);
    EXPECT_EQ(shown().size(), 1u);
    queue.advance(1);
    ASSERT_EQ(shown().size(), 2u);
    EXPECT_EQ(shown()[1].body, "1 backup completed.");
    wallClock.set(wallClock.now() + std::chrono::hours(20));
    summary("first", std::chrono::hours(4));
    notifications.removePending("quillstow-daily-summary");
    summary("2 backups completed.", std::chrono::hours(4));
    queue.advance(5 * 3600);
    ASSERT_EQ(shown().size(), 3u);
    EXPECT_EQ(shown()[2].body, "2 backups completed.");
    EXPECT_EQ(shown()[2].replaces, 2u) << "the server's id of the earlier summary";
}

// Counts what a trigger fires on its own thread; waits in real time, bounded, for a count, as
// the trigger's thread reads a real socket.
struct Fires {
    ReconnectTrigger::Fire counter() {
        return [this] {
            ++count;
            fired.release();
        };
    }
    bool reach(int wanted) {
        while (count < wanted) {
            if (!fired.try_acquire_for(std::chrono::seconds(10))) return false;
        }
        return true;
    }
    std::atomic<int> count = 0;
    std::counting_semaphore<> fired{0};
};

TEST(NetworkState, UpWhenConnectedOrUnknown) {
    const std::map<std::uint32_t, bool> cases{{0, true},  {20, false}, {40, false},
                                              {50, true}, {60, true},  {70, true}};
    for (const auto& [state, isUp] : cases)
        EXPECT_EQ(isNetworkUp(state), isUp) << state;
}

TEST_F(DesktopServicesTest, EachTriggerFiresOnlyForItsSignalMeaningGo) {
    sd_bus* sender = nullptr;
    ASSERT_GE(sd_bus_new(&sender), 0);
    sd_bus_set_address(sender, address().c_str());
    sd_bus_set_bus_client(sender, 1);
    ASSERT_GE(sd_bus_start(sender), 0);
    const auto send = [&](const char* path, const char* interface, const char* member,
                          const char* type, auto value) {
        EXPECT_GE(sd_bus_emit_signal(sender, path, interface, member, type, value), 0);
        sd_bus_flush(sender);
    };
    Fires wake, screens, network;
    auto wakeTrigger = makeWakeTrigger(address());
    auto screensTrigger = makeScreensWakeTrigger(address());
    auto networkTrigger = makeNetworkUpTrigger(address());
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
    ASSERT_TRUE(wake.reach(1) && screens.reach(2) && network.reach(1));
    // The last of these signals went through the same daemon after the ones counted; stopping
    // lets every listener process what it had before it ends.
    wakeTrigger->stop();
    screensTrigger->stop();
    networkTrigger->stop();
    EXPECT_EQ(wake.count, 1) << "going to sleep is no wake";
    EXPECT_EQ(screens.count, 2) << "both screen savers, waking only";
    EXPECT_EQ(network.count, 1) << "disconnected is no network up";
    send(login, "org.freedesktop.login1.Manager", "PrepareForSleep", "b", 0);
    EXPECT_EQ(wake.count, 1) << "nothing after stop";

    // A network already up when the trigger starts fires once at once.
    set("State", "u:70");
    Fires already;
    networkTrigger = makeNetworkUpTrigger(address());
    networkTrigger->start(already.counter());
    EXPECT_TRUE(already.reach(1));
    networkTrigger->stop();
    EXPECT_EQ(already.count, 1);
    sd_bus_flush_close_unref(sender);
}

// In a network namespace of one thread of its own, so the machine's network is not touched:
// the loopback brought up there gains its address.
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
        EXPECT_EQ(fires.count, 0);
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq loopback{};
        std::strcpy(loopback.ifr_name, "lo");
        loopback.ifr_flags = IFF_UP;
        EXPECT_EQ(::ioctl(socket, SIOCSIFFLAGS, &loopback), 0) << std::strerror(errno);
        ::close(socket);
        EXPECT_TRUE(fires.reach(1));
        trigger.stop();
    });
    const std::string why = skipped.get_future().get();
    inNamespace.join();
    if (!why.empty()) GTEST_SKIP() << why;
}

}  // namespace
}  // namespace quillstow
