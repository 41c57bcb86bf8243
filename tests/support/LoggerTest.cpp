// What reaches the platform log: public arguments shown, private ones never.

#include <gtest/gtest.h>

#include "LogCapture.hpp"

namespace quillstow {
namespace {

TEST(LogFormat, ShowsPublicArgumentsAndMasksPrivateOnes) {
    EXPECT_EQ(
        formatLogMessage("Failed to write %{public}s: %{public}s", {"config.json", "No space"}),
        "Failed to write config.json: No space");
    EXPECT_EQ(formatLogMessage("Could not create source bookmark for %{private}s: %{public}s",
                               {"/home/ana/Secret Project", "No such file"}),
              "Could not create source bookmark for <private>: No such file");
    EXPECT_EQ(formatLogMessage("plain %s and %d files, 100%%", {"/home/ana", "3"}),
              "plain <private> and 3 files, 100%");
    EXPECT_EQ(formatLogMessage("mounted %{public}ld times, %lu left", {"2", "7"}),
              "mounted 2 times, 7 left");
}

TEST(LogFormat, HashesMaskedArgumentsStablyWithoutShowingThem) {
    const std::string first = formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"});
    EXPECT_EQ(first, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"}));
    EXPECT_NE(first, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Fil"}));
    EXPECT_TRUE(first.starts_with("<mask.hash: '")) << first;
    EXPECT_EQ(first.find("ana"), std::string::npos);
}

TEST(LogFormat, SurvivesMalformedFormats) {
    EXPECT_EQ(formatLogMessage("%{public", {"x"}), "%{public");
    EXPECT_EQ(formatLogMessage("trailing %", {}), "trailing %");
    EXPECT_EQ(formatLogMessage("%{public}s %{public}s", {"one"}), "one <missing>");
    EXPECT_EQ(formatLogMessage("%x", {"a"}), "%x");
}

TEST(Logger, SendsCategoryAndLevelToTheSink) {
    testing::LogCapture capture;
    Logger("ConfigStore").notice("Recovered from config.json.backup");
    Logger("Bookmark").error("Could not create offsite bookmark: %{public}s", "denied");
    Logger("app").info("count %d", 7);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].category, "ConfigStore");
    EXPECT_EQ(records[0].level, LogLevel::standard);
    EXPECT_EQ(records[1].level, LogLevel::error);
    EXPECT_EQ(records[1].message, "Could not create offsite bookmark: denied");
    EXPECT_EQ(records[2].level, LogLevel::info);
    EXPECT_EQ(records[2].message, "count 7");
}

}  // namespace
}  // namespace quillstow
