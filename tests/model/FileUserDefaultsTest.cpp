// User defaults in their file.

#include <gtest/gtest.h>

#include "LogCapture.hpp"
#include "TestTree.hpp"
#include "model/FileUserDefaults.hpp"
#include "model/Tips.hpp"
#include "support/Json.hpp"

namespace quillstow {
namespace {

using namespace testing;

TEST(FileUserDefaults, KeepsValuesAcrossInstancesWithTheirKinds) {
    TemporaryFolder root;
    {
        FileUserDefaults defaults(root / "defaults.json");
        nextTip(defaults, 0, false, false, false);
        nextTip(defaults, 0, false, false, false);
        defaults.setBoolean("didLogPackageUpgrade_E621E1F8-C36C-495A-93FC-0C247A3E6E5F", true);
        defaults.setValue("name", std::string("x"));
    }
    FileUserDefaults defaults(root / "defaults.json");
    EXPECT_EQ(defaults.integer(tipCounterKey), 2);
    EXPECT_TRUE(defaults.boolean("didLogPackageUpgrade_E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
    EXPECT_EQ(defaults.value("name"), UserDefaults::Value(std::string("x")));
    const json::Value file = json::read(readFile(root / "defaults.json"));
    EXPECT_TRUE(file["Quillstow.tipCounter"].is_number_integer());
    EXPECT_TRUE(file["didLogPackageUpgrade_E621E1F8-C36C-495A-93FC-0C247A3E6E5F"].is_boolean());

    defaults.removeValue("name");
    EXPECT_FALSE(FileUserDefaults(root / "defaults.json").value("name"));
}

TEST(FileUserDefaults, ADamagedFileReadsAsEmptyAndIsReplacedByTheNextChange) {
    TemporaryFolder root;
    writeFile(root / "defaults.json", "{\"Quillstow.tipCounter\": ");
    LogCapture log;
    FileUserDefaults defaults(root / "defaults.json");
    EXPECT_EQ(defaults.integer(tipCounterKey), 0);
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_TRUE(log.records()[0].message.starts_with("Failed to load defaults.json: "));
    defaults.setInteger(tipCounterKey, 4);
    EXPECT_EQ(FileUserDefaults(root / "defaults.json").integer(tipCounterKey), 4);
}

TEST(FileUserDefaults, PassesOverValuesOfOtherKinds) {
    TemporaryFolder root;
    writeFile(root / "defaults.json", R"({"list": [1, 2], "n": 3, "big": 18446744073709551615})");
    FileUserDefaults defaults(root / "defaults.json");
    EXPECT_FALSE(defaults.value("list"));
    EXPECT_FALSE(defaults.value("big"));
    EXPECT_EQ(defaults.integer("n"), 3);
}

}  // namespace
}  // namespace quillstow
