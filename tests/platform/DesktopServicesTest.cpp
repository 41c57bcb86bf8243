// Desktop services as the program reads them: fake UPower, power profiles, notification server
// and NetworkManager on a dbus-daemon of the test's own; sysfs where no bus answers; the idle
// sources; gio run as a child; and running editors found through /proc.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <map>
#include <mutex>
#include <semaphore>
#include <sstream>

#include "PrivateBus.hpp"
#include "TestTree.hpp"
#include "environment/Gates.hpp"
#include "platform/DesktopNotifications.hpp"
#include "platform/GioMounter.hpp"
#include "platform/LinuxPowerReadings.hpp"
#include "platform/LinuxUserActivity.hpp"
#include "platform/ProcRunningEditors.hpp"
#include "platform/ReconnectTriggers.hpp"
#include "support/Paths.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
constexpr ThermalState nominal = ThermalState::nominal;

// What a Notify call asked the server to show.
struct Shown {
    std::string application, icon, summary, body, sound, desktopEntry;
    std::uint32_t replaces = 0;
    std::string actions;  // joined by "|"
    bool operator==(const Shown&) const = default;
};

class DesktopServicesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bus_ = std::make_unique<PrivateBus>([this](sd_bus* bus) { serve(bus); });
        if (bus_->address().empty()) GTEST_SKIP() << bus_->whyNot();
    }

    std::string exchange(const std::string& property, const std::string& value) {
        std::lock_guard lock(mutex_);
        return std::exchange(properties_[property], value);
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
        Shown record{application, icon, summary, body, "", "", replaces, ""};
        char** actions = nullptr;
        sd_bus_message_read_strv(call, &actions);
        for (char** action = actions; action && *action; ++action) {
            record.actions += (record.actions.empty() ? "" : "|") + std::string(*action);
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

// "current/max source" of a battery, "?" for what is unknown; "none" without one.
std::string described(const std::optional<BatteryDescription>& battery) {
    if (!battery) return "none";
    const auto number = [](auto value) { return value ? std::to_string(*value) : "?"; };
    return number(battery->currentCapacity) + "/" + number(battery->maxCapacity) + " " +
           battery->powerSourceState.value_or("?");
}

// UPower's laptop on battery at 29.4% with one property changed; or sysfs alone, without a bus.
TEST_F(DesktopServicesTest, PowerReadingsComeFromUPowerAndTheProfilesServiceElseFromSysfs) {
    const struct {
        const char *name, *property, *value;  // no property: no bus
        const char* supplies;  // split by ";", each its folder, then its files as "file=value"
        const char* zones;     // temperatures; each has a passive trip at 60000, critical 105000
        const char* battery;
        ThermalState thermal;
        bool isPowerSaver = false;
    } rows[] = {
        {"on battery", "OnBattery", "b:1", "", "", "2940/10000 Battery Power", nominal},
        {"on AC", "OnBattery", "b:0", "", "", "2940/10000 AC Power", nominal},
        {"a line power device, and sysfs not asked", "Type", "u:1", "BAT0 type=Battery capacity=3",
         "", "none", nominal},
        {"power saver", "ActiveProfile", "s:power-saver", "", "", "2940/10000 Battery Power",
         nominal, true},
        {"running hot", "PerformanceDegraded", "s:high-operating-temperature", "", "",
         "2940/10000 Battery Power", ThermalState::serious},
        {"a zone past its critical trip comes first", "PerformanceDegraded",
         "s:high-operating-temperature", "", "70000 105000", "2940/10000 Battery Power",
         ThermalState::critical},
        {"off AC, by energy", nullptr, nullptr,
         "AC type=Mains online=0;BAT0 type=Battery status=Discharging energy_now=1 energy_full=5",
         "", "1/5 Battery Power", nominal},
        {"plugged in, by charge", nullptr, nullptr,
         "ADP1 type=Mains online=1;BAT1 type=Battery status=Charging charge_now=1 charge_full=4",
         "", "1/4 AC Power", nominal},
        {"only a capacity in percent", nullptr, nullptr,
         "BAT0 type=Battery status=Discharging capacity=30", "", "30/100 Battery Power", nominal},
        {"a mouse's battery and an absent one", nullptr, nullptr,
         "mouse type=Battery scope=Device capacity=5;BAT0 type=Battery present=0 capacity=3", "",
         "none", nominal},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TemporaryFolder root;
        std::istringstream supplies(row.supplies);
        for (std::string supply; std::getline(supplies, supply, ';');) {
            std::istringstream words(supply);
            std::string folder, file;
            words >> folder;
            while (words >> file) {
                const auto equals = file.find('=');
                writeFile(root / "class/power_supply" / folder / file.substr(0, equals),
                          file.substr(equals + 1) + "\n");
            }
        }
        std::istringstream zones(row.zones);
        int number = 0;
        for (std::string temperature; zones >> temperature; ++number) {
            const auto zone = root / "class/thermal" / ("thermal_zone" + std::to_string(number));
            writeFile(zone / "temp", temperature + "\n");
            writeFile(zone / "trip_point_0_type", "passive\n");
            writeFile(zone / "trip_point_0_temp", "60000\n");
            writeFile(zone / "trip_point_1_type", "critical\n");
            writeFile(zone / "trip_point_1_temp", "105000\n");
        }
        const std::string before = row.property ? exchange(row.property, row.value) : "";
        const LinuxPowerReadings power(
            row.property ? DBusConnection::openAddress(address()) : nullptr, root / "class");
        EXPECT_EQ(described(power.internalBatteryDescription()), row.battery);
        EXPECT_EQ(power.thermalState(), row.thermal);
        EXPECT_EQ(power.isLowPowerModeEnabled(), row.isPowerSaver);
        if (row.property) exchange(row.property, before);
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
                        "default|Open Quillstow"};
    ASSERT_EQ(shown(), std::vector<Shown>{problem});

    // The summary waits for its time; one removed while pending is never shown; the next one
    // takes the place of the one shown before.
    const auto summary = [&](const std::string& body) {
        notifications.schedule({"quillstow-daily-summary", "Daily Backup Summary", body},
                               wallClock.now() + std::chrono::hours(3));
    };
    summary("removed");
    notifications.removePending("quillstow-daily-summary");
    summary("1 backup completed.");
    queue.advance(3 * 3600 - 1);
    EXPECT_EQ(shown().size(), 1u);
    queue.advance(1);
    summary("2 backups completed.");
    queue.advance(3 * 3600);
    ASSERT_EQ(shown().size(), 3u);
    EXPECT_EQ(shown()[1].body, "1 backup completed.");
    EXPECT_EQ(shown()[2].body, "2 backups completed.");
    EXPECT_EQ(shown()[2].replaces, 2u) << "the server's id of the summary shown before";
}

TEST(LinuxUserActivity, AsksTheSourcesInOrderKeepsAReadingForASecondAndTakesSilenceAsAway) {
    ManualClock clock;
    int asked = 0;
    const auto source = [&](std::optional<double> idle) {
        return [&asked, idle] {
            ++asked;
            return idle;
        };
    };
    LinuxUserActivity activity({source(std::nullopt), source(5.0), source(3600.0)}, clock);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.0);
    clock.advance(0.5);
    EXPECT_DOUBLE_EQ(activity.secondsSinceLastUserInput(), 5.5);
    EXPECT_EQ(asked, 2) << "the first answer wins, and is kept for a second";
    clock.advance(0.5);
    activity.secondsSinceLastUserInput();
    EXPECT_EQ(asked, 4);
    EXPECT_GE(LinuxUserActivity({source(std::nullopt)}, clock).secondsSinceLastUserInput(),
              userIdleThreshold);
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

    sd_bus_flush_close_unref(sender);
}

// Asking GVFS to mount, with small scripts standing in for gio: what it is given, that it can't
// prompt, and that it is killed at its time limit.
TEST(GioMounter, MountedOnlyWhenGioSaysSoWithNothingToPromptOnAndWithinItsTime) {
    TemporaryFolder root;
    // Each stands in for gio, with $here set to the test's folder.
    const struct {
        const char* body;
        bool isMounted;
    } cases[] = {
        {R"(printf '%s\n' "$@" > "$here/arguments"
if read -r line; then echo line; else echo end; fi > "$here/input"
set -- $(cat /proc/$$/stat)
if [ "$6" = "$$" ]; then echo own; else echo shared; fi > "$here/session")",
         true},
        {"exit 2", false},
        {"kill -TERM $$", false},
        {"echo $$ > \"$here/pid\"\nexec sleep 600", false},  // still running at its time limit
    };
    for (const auto& c : cases) {
        writeFile(root / "gio", "#!/bin/sh\nhere=\"$(dirname \"$0\")\"\n" + std::string(c.body));
        ::chmod((root / "gio").c_str(), 0755);
        EXPECT_EQ(GioMounter((root / "gio").native(), 0.2).mount("smb://nas/photos/"), c.isMounted)
            << c.body;
    }
    EXPECT_EQ(readFile(root / "arguments"), "mount\nsmb://nas/photos/\n");
    EXPECT_EQ(readFile(root / "input"), "end\n") << "standard input is empty";
    EXPECT_EQ(readFile(root / "session"), "own\n") << "a session without a terminal";
    const pid_t gio = std::stoi(readFile(root / "pid"));
    EXPECT_TRUE(::kill(gio, 0) == -1 && errno == ESRCH) << "killed and reaped";
    EXPECT_FALSE(GioMounter((root / "no-gio").native()).mount("smb://nas/photos/"));
}

// A child process named as an editor, holding a file open: by its path, by another path to it
// (matched by device and inode), and by a folder copied whole around it.
TEST(ProcRunningEditors, FindsARunningEditorAndWhatItHoldsOpen) {
    TemporaryFolder root;
    writeFile(root / "Song.band/take.kra", "layers");
    writeFile(root / "Song.bandage", "not around it");
    makeLink(root / "alias.kra", root / "Song.band/take.kra");
    writeFile(root / "notes.txt", "held open by this test, which is no editor");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Only async-signal-safe calls between fork and _exit.
        const int fd = ::open((root / "Song.band/take.kra").c_str(), O_RDONLY);
        ::prctl(PR_SET_NAME, "krita");
        const char byte = fd >= 0 ? 'y' : 'n';
        (void)!::write(ready[1], &byte, 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    const std::ifstream held(root / "notes.txt");  // after the fork, so the child has it not

    const EditorSnapshot snapshot = ProcRunningEditors().snapshot();
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);

    EXPECT_NE(std::ranges::find(snapshot.names, "Krita"), snapshot.names.end());
    const auto info = files::readInfo(root / "Song.band/take.kra");
    ASSERT_TRUE(info);
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "Song.band/take.kra", &*info));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "alias.kra", nullptr));
    EXPECT_TRUE(isOpenInEditor(snapshot, root / "Song.band", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "Song.bandage", nullptr));
    EXPECT_FALSE(isOpenInEditor(snapshot, root / "notes.txt", nullptr));
    EXPECT_FALSE(ProcRunningEditors(root / "no-proc-here").snapshot().hasEditors());
}

}  // namespace
}  // namespace quillstow
