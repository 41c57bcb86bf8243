// Dates, file URLs, JSON, byte counts and log lines: the forms values take in files and in front
// of the user. Identifiers and base64 are read back by the settings and bookmark tests.

#include <gtest/gtest.h>

#include <algorithm>

#include "support/ByteCount.hpp"
#include "support/Dates.hpp"
#include "support/FileUrl.hpp"
#include "support/Json.hpp"
#include "support/Logger.hpp"

namespace quillstow {
namespace {

using namespace std::chrono;

TEST(Dates, WriteUtcToTheSecondAndReadWhatTheyWroteAndOffsetsAndNothingElse) {
    const Date date = sys_days{2024y / February / 29} + 23h + 59min + 58s;
    EXPECT_EQ(dates::formatISO8601(date + 999ms), "2024-02-29T23:59:58Z") << "fractions are cut";
    EXPECT_EQ(dates::formatISO8601(Date{} - 1ns), "1969-12-31T23:59:59Z");
    EXPECT_EQ(dates::parseISO8601("2024-02-29T23:59:58Z"), date);
    EXPECT_EQ(dates::parseISO8601("2024-03-01T01:59:58+02:00"), date);
    EXPECT_EQ(dates::parseISO8601("2024-02-29T20:29:58-03:30"), date);
    // The edges of what a date can hold.
    EXPECT_TRUE(dates::parseISO8601("1678-01-01T00:00:00Z"));
    EXPECT_EQ(dates::formatISO8601(*dates::parseISO8601("2262-01-01T00:00:00Z")),
              "2262-01-01T00:00:00Z");
    for (const char* text :
         {"", "2024-02-30T00:00:00Z", "2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z",
          "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z", "2024-01-01T00:00:00",
          "2024-01-01T00:00:00.5Z", "2024-01-01 00:00:00Z", "2024-01-01T00:00:00Zjunk",
          "20240101T000000Z", "2024-01-01T00:00:00+2:00", "x024-01-01T00:00:00Z",
          "0025-01-01T00:00:00Z", "2475-03-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
        EXPECT_FALSE(dates::parseISO8601(text)) << text;
    }
}

TEST(FileUrls, EncodeWhatAPathMayHoldDecodeItBackAndRefuseRelativeRemoteAndBrokenOnes) {
    EXPECT_EQ(fileurls::fromPath("/My Drive/100%/a#b?c"), "file:///My%20Drive/100%25/a%23b%3Fc");
    EXPECT_EQ(fileurls::fromPath("/Fotos/Zürich"), "file:///Fotos/Z%C3%BCrich");
    EXPECT_EQ(fileurls::fromPath("/a-b_c.d~e!$&'()*+,;=:@/"), "file:///a-b_c.d~e!$&'()*+,;=:@/");
    for (const char* path :
         {"/", "/My Drive/100%/a#b?c", "/Fotos/Zürich/", "/tab\there", "/\xff\xfe not utf-8"}) {
        EXPECT_EQ(fileurls::toPath(fileurls::fromPath(path)), std::filesystem::path(path)) << path;
    }
    EXPECT_EQ(fileurls::toPath("file://localhost/tmp/x"), std::filesystem::path("/tmp/x"));
    EXPECT_EQ(fileurls::toPath("file:///tmp/%7e"), std::filesystem::path("/tmp/~"));
    using namespace std::string_literals;
    for (const std::string& url : std::vector<std::string>{
             ""s, "/tmp/x"s, "tmp/x", "file:tmp/x", "file://server/share", "http://example.com/x",
             "FILE:///tmp", "file:///tmp/%", "file:///tmp/%4", "file:///tmp/%zz",
             "file:///tmp/%00null", "file:///tmp/x?query", "file:///tmp/x#fragment",
             "file:///with space", "file:///Z\xc3\xbcrich", "file:///nul\0inside"s}) {
        EXPECT_FALSE(fileurls::toPath(url)) << url;
    }
}

// The member-by-member writer and reader must give and take exactly what the whole-document
// ones do: files written either way are read by both.
TEST(Json, WritesSortedEscapedAndIndentedWholeOrByMemberAndReadsMembersBackInOrder) {
    EXPECT_EQ(json::write({{"b", "file:///a/b"}, {"a", 1}, {"c", json::Value::array()}}),
              "{\n  \"a\": 1,\n  \"b\": \"file:\\/\\/\\/a\\/b\",\n  \"c\": []\n}");
    EXPECT_EQ(json::write(json::Value{{"name", std::string("caf\xe9")}}),
              "{\n  \"name\": \"caf\xef\xbf\xbd\"\n}")
        << "bytes that are not UTF-8 never fail a write";
    for (const json::Value& document :
         {json::Value::object(),
          json::Value{{"a/b", {{"sha256", "00ff"}, {"more", {{"x", json::Value::array()}}}}},
                      {"caf\xc3\xa9", {{"k", {1, 2}}}},
                      {"z\"q", "x\ny"}}}) {
        SCOPED_TRACE(document.dump());
        json::ObjectWriter writer;
        for (const auto& [key, value] : document.items())
            writer.add(key, value);
        const std::string text = std::move(writer).finish();
        EXPECT_EQ(text, json::write(document));
        EXPECT_EQ(json::read(text), document);
        json::Value readBack = json::Value::object();
        std::vector<std::string> order;
        json::readMembers(text, [&](const std::string& key, json::Value&& value) {
            order.push_back(key);
            readBack[key] = std::move(value);
        });
        EXPECT_EQ(readBack, document);
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()) && order.size() == document.size());
    }
    for (const std::string_view notAnObject : {"[{\"a\": 1}]", "\"a\"", "{\"a\": {", ""}) {
        int taken = 0;
        EXPECT_THROW(
            json::readMembers(notAnObject, [&](const std::string&, json::Value&&) { ++taken; }),
            Failure);
        EXPECT_EQ(taken, 0) << notAnObject;
    }
}

TEST(ByteCounts, FollowTheFileStyle) {
    const std::pair<std::int64_t, const char*> cases[] = {
        {0, "Zero KB"},
        {1, "1 byte"},
        {999, "999 bytes"},
        {1499, "1 KB"},
        {1500, "2 KB"},
        {999'999, "1 MB"},
        {1'234'567'898, "1.23 GB"},
        {12'345'678'987, "12.35 GB"},
        {9'223'372'036'854'775'807, "9.22 EB"},
        {-1, "-1 byte"},
    };
    for (const auto& [bytes, text] : cases)
        EXPECT_EQ(formatByteCount(bytes), text) << bytes;
}

TEST(LogFormat, ShowsPublicArgumentsMasksPrivateOnesAndSurvivesMalformedFormats) {
    const struct {
        const char* format;
        std::vector<std::string> arguments;
        const char* shown;
    } rows[] = {
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
    EXPECT_TRUE(hashed.starts_with("<mask.hash: '") && hashed.find("ana") == std::string::npos)
        << hashed;
}

}  // namespace
}  // namespace quillstow
