// Notifications through org.freedesktop.Notifications: a fake server on a private bus records
// what it is told; the daily summary waits on a timer in virtual time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "PrivateBus.hpp"
#include "platform/DesktopNotifications.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;

struct Shown {
    std::string application;
    std::uint32_t replaces = 0;
    std::string summary;
    std::string body;
    std::string sound;
    std::string icon;
    std::string desktopEntry;
    std::vector<std::string> actions;
};

class DesktopNotificationsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bus_ = std::make_unique<PrivateBus>([this](sd_bus* bus) { serve(bus); });
        if (bus_->address().empty()) GTEST_SKIP() << bus_->whyNot();
        notifications = std::make_unique<DesktopNotifications>(
            queue, queue, wallClock, DBusConnection::openAddress(bus_->address()));
    }

    std::vector<Shown> shown() {
        std::lock_guard lock(mutex_);
        return shown_;
    }

    ManualClock clock{0};
    VirtualMainQueue queue{clock};
    ManualWallClock wallClock{Date{std::chrono::seconds(1'800'000'000)}};
    std::unique_ptr<DesktopNotifications> notifications;

  private:
    static int notify(sd_bus_message* call, void* self, sd_bus_error*) {
        auto* test = static_cast<DesktopNotificationsTest*>(self);
        const char *application, *icon, *summary, *body;
        std::uint32_t replaces = 0;
        sd_bus_message_read(call, "susss", &application, &replaces, &icon, &summary, &body);
        Shown record{application, replaces, summary, body, "", icon, "", {}};
        char** actions = nullptr;
        sd_bus_message_read_strv(call, &actions);
        for (char** action = actions; action && *action; ++action) {
            record.actions.emplace_back(*action);
            std::free(*action);
        }
        std::free(actions);
        sd_bus_message_enter_container(call, 'a', "{sv}");
        while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
            const char* key = nullptr;
            sd_bus_message_read(call, "s", &key);
            if (std::string(key) == "sound-name" || std::string(key) == "desktop-entry") {
                const char* text = nullptr;
                sd_bus_message_read(call, "v", "s", &text);
                (std::string(key) == "sound-name" ? record.sound : record.desktopEntry) = text;
            } else {
                sd_bus_message_skip(call, "v");
            }
            sd_bus_message_exit_container(call);
        }
        std::lock_guard lock(test->mutex_);
        test->shown_.push_back(record);
        const std::uint32_t id = replaces != 0 ? replaces : std::uint32_t(test->shown_.size());
        return sd_bus_reply_method_return(call, "u", id);
    }

    void serve(sd_bus* bus) {
        static const sd_bus_vtable table[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END};
        sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/Notifications",
                                 "org.freedesktop.Notifications", table, this);
        sd_bus_request_name(bus, "org.freedesktop.Notifications", 0);
    }

    std::unique_ptr<PrivateBus> bus_;
    std::mutex mutex_;
    std::vector<Shown> shown_;
};

TEST_F(DesktopNotificationsTest, ShowsTitleAndBodyWithTheDefaultSoundAndOurIdentity) {
    notifications->deliver(
        {"error-1", "Backup Problem", "Work — 1 of 2 files couldn't be backed up."});
    const auto seen = shown();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].application, "Quillstow");
    EXPECT_EQ(seen[0].replaces, 0u);
    EXPECT_EQ(seen[0].summary, "Backup Problem");
    EXPECT_EQ(seen[0].body, "Work — 1 of 2 files couldn't be backed up.");
    EXPECT_EQ(seen[0].sound, "message-new-instant");
    EXPECT_EQ(seen[0].icon, "io.quillstow.Quillstow");
    EXPECT_EQ(seen[0].desktopEntry, "io.quillstow.Quillstow");
    EXPECT_EQ(seen[0].actions, (std::vector<std::string>{"default", "Open Quillstow"}));
    EXPECT_TRUE(notifications->hasShown(1));
    EXPECT_FALSE(notifications->hasShown(2));
}

TEST_F(DesktopNotificationsTest, TheSummaryWaitsForItsTimeAndReplacesTheOneShownBefore) {
    const Date evening = wallClock.now() + std::chrono::hours(3);
    notifications->schedule(
        {"quillstow-daily-summary", "Daily Backup Summary", "1 backup completed."}, evening);
    queue.advance(3 * 3600 - 1);
    EXPECT_TRUE(shown().empty());
    queue.advance(1);
    ASSERT_EQ(shown().size(), 1u);
    EXPECT_EQ(shown()[0].body, "1 backup completed.");

    // The next evening's summary, rescheduled twice; only the last one is shown, in place of
    // yesterday's.
    wallClock.set(wallClock.now() + std::chrono::hours(20));
    notifications->schedule({"quillstow-daily-summary", "Daily Backup Summary", "first"},
                            wallClock.now() + std::chrono::hours(4));
    notifications->removePending("quillstow-daily-summary");
    notifications->schedule(
        {"quillstow-daily-summary", "Daily Backup Summary", "2 backups completed."},
        wallClock.now() + std::chrono::hours(4));
    queue.advance(5 * 3600);
    const auto seen = shown();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].body, "2 backups completed.");
    EXPECT_EQ(seen[1].replaces, 1u) << "the server's id of the earlier summary";
}

TEST(DesktopNotificationsWithoutABus, FailToDeliverAndLetThePendingGo) {
    ManualClock clock{0};
    VirtualMainQueue queue{clock};
    ManualWallClock wallClock{Date{}};
    DesktopNotifications notifications(queue, queue, wallClock, nullptr);
    EXPECT_THROW(notifications.deliver({"x-1", "Title", "Body"}), Failure);
    notifications.schedule({"x-2", "Title", "Body"}, Date{} + std::chrono::seconds(10));
    notifications.removePending("x-2");
    EXPECT_EQ(queue.scheduledCount(), 0u);
}

}  // namespace
}  // namespace quillstow
