// What reaches the platform log: public arguments shown, private ones never.

#include <gtest/gtest.h>

#include "LogCapture.hpp"

namespace quillstow {
namespace {

TEST(LogFormat, ShowsPublicArgumentsMasksPrivateOnesAndSurvivesMalformedFormats) {
    const struct {
        const char* format;
        std::vector<std::string> arguments;
        const char* shown;
    } rows[] = {
        {"Failed to write %{public}s: %{public}s",
         {"config.json", "No space"},
         "Failed to write config.json: No space"},
        {"for %{private}s: %{public}s",
         {"/home/ana/Secret", "No such file"},
         "for <private>: No such file"},
        {"plain %s and %d files, 100%%", {"/home/ana", "3"}, "plain <private> and 3 files, 100%"},
        {"mounted %{public}ld times, %lu left", {"2", "7"}, "mounted 2 times, 7 left"},
        {"%{public", {"x"}, "%{public"},
        {"trailing %", {}, "trailing %"},
        {"%{public}s %{public}s", {"one"}, "one <missing>"},
        {"%x", {"a"}, "%x"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(formatLogMessage(row.format, row.arguments), row.shown) << row.format;
    const std::string hashed = formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"});
    EXPECT_EQ(hashed, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Film"})) << "stable";
    EXPECT_NE(hashed, formatLogMessage("%{private,mask.hash}s", {"/home/ana/Fil"}));
    EXPECT_TRUE(hashed.starts_with("<mask.hash: '")) << hashed;
    EXPECT_EQ(hashed.find("ana"), std::string::npos);
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
