#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"
#include "tests/support/TestHelpers.h"

namespace Tavri {
namespace {

using testing::runtimeError;

TEST(SettingsTreeTest, PathsMakeGroupsAndCopiesShareNodes) {
    TSettings tree("");
    tree.addDouble("Camera/Gain", 2.5, "");
    tree.addString("Camera/ColorMode", "Raw", "");
    tree.addDouble("ExposureTime", 8333.0, "");

    EXPECT_TRUE(tree.has("Camera"));
    EXPECT_TRUE(tree.has("Camera/Gain"));
    EXPECT_FALSE(tree.has("Camera/Gain/More"));
    EXPECT_FALSE(tree.has("Gain"));
    EXPECT_TRUE(tree["Camera"].isGroup());
    EXPECT_EQ(tree["Camera"]["Gain"].toDouble(), 2.5);
    EXPECT_EQ(tree["Camera/ColorMode"].toString(), "Raw");
    EXPECT_EQ(tree["Camera/ColorMode"].path(), "Camera/ColorMode");
    EXPECT_EQ(tree.keys(), (std::vector<std::string>{"Camera", "ExposureTime"}));

    TSettings copy = tree;
    copy.addDouble("Camera/Gain", 4.0, "");
    EXPECT_EQ(tree["Camera/Gain"].toDouble(), 4.0) << "a copy refers to the same node";
    TSettings leaf = tree["ExposureTime"];
    tree.addDouble("ExposureTime", 1.0, "");
    EXPECT_EQ(leaf.toDouble(), 1.0);
}

TEST(SettingsTreeTest, WrongKindsAndMissingKeysNameTheKey) {
    TSettings tree("");
    tree.addDouble("Camera/Gain", 1.0, "");
    tree.addString("Camera/TriggerType", "Hardware", "");
    const TSettings& constTree = tree;

    struct Case {
        std::function<void()> action;
        std::string expected;
    };
    const Case cases[] = {
        {[&] { constTree["Camera/Missing"]; }, "Setting 'Camera/Missing' not found"},
        {[&] { tree["Nope"]; }, "Setting 'Nope' not found"},
        {[&] { constTree["Camera/Gain"].toString(); }, "Setting 'Camera/Gain' is a number, not a word"},
        {[&] { constTree["Camera/TriggerType"].toDouble(); }, "Setting 'Camera/TriggerType' is a word, not a number"},
        {[&] { constTree["Camera"].toDouble(); }, "Setting 'Camera' is a group, not a number"},
        {[&] { tree["Camera/Gain"].asString(); }, "Setting 'Camera/Gain' is a number, not a word"},
        {[&] { tree.addDouble("Camera/Gain/Sub", 1.0, ""); }, "Setting 'Camera/Gain' is not a group"},
        {[&] { tree.addDouble("Camera//Gain", 1.0, ""); }, "Invalid settings key 'Camera//Gain'"},
    };
    for (const auto& c : cases) EXPECT_NE(runtimeError(c.action).find(c.expected), std::string::npos) << c.expected;
}

TEST(SettingsTreeTest, RangesGiveEnumValues) {
    TGroupSettings tree("", "");
    tree.addString("Camera/BayerLayout", "BGGR", "");
    tree["Camera/BayerLayout"].asString().setRange({"GRBG", "RGGB", "BGGR", "GBRG"});
    EXPECT_EQ(tree["Camera/BayerLayout"].asString().getEnumValue(), 2);
    tree.addString("Camera/BayerLayout", "GRBG", "");
    EXPECT_EQ(tree["Camera/BayerLayout"].asString().getEnumValue(), 0);
    tree.addString("Camera/BayerLayout", "XXXX", "");
    EXPECT_NE(runtimeError([&] { tree["Camera/BayerLayout"].asString().getEnumValue(); }).find("not in its range"),
              std::string::npos);
}

TEST(SettingsTreeTest, JsonRoundTripKeepsPathsKindsAndRanges) {
    TSettings tree("");
    tree.addDouble("ExposureTime", 8333.0, "");
    tree.addDouble("Camera/Gain", -1.5, "");
    tree.addString("Camera/ColorMode", "Raw", "");
    tree.addString("Camera/BayerLayout", "BGGR", "");
    tree["Camera/BayerLayout"].asString().setRange({"GRBG", "RGGB", "BGGR", "GBRG"});

    const std::string file = ::testing::TempDir() + "settings_round_trip.json";
    tree.saveJson(file);
    TSettings loaded = TSettings::loadJson(file);
    std::remove(file.c_str());

    EXPECT_EQ(loaded.toJson(), tree.toJson());
    EXPECT_EQ(loaded["ExposureTime"].toDouble(), 8333.0);
    EXPECT_EQ(loaded["Camera/Gain"].toDouble(), -1.5);
    EXPECT_EQ(loaded["Camera/ColorMode"].toString(), "Raw");
    EXPECT_EQ(loaded["Camera/BayerLayout"].asString().getEnumValue(), 2);
    EXPECT_EQ(loaded.keys(), tree.keys());
}

TEST(SettingsTreeTest, BadJsonNamesFileAndPosition) {
    const std::string file = ::testing::TempDir() + "broken_settings.json";
    struct Case {
        std::string text, expected;
    };
    const Case cases[] = {
        {"{\n  \"Camera\": {\"Gain\": 1,,}\n}", "line 2, column"},
        {"[1, 2]", "must hold a JSON object"},
        {"{\"Camera\": {\"Gain\": true}}", "setting 'Camera/Gain' must be a number, a word or a group"},
        {"{\"Camera\": {\"a/b\": 1}}", "invalid settings key 'a/b'"},
    };
    for (const auto& c : cases) {
        { std::ofstream(file) << c.text; }
        const std::string message = runtimeError([&] { TSettings::loadJson(file); });
        EXPECT_NE(message.find(file), std::string::npos) << message;
        EXPECT_NE(message.find(c.expected), std::string::npos) << message;
    }
    std::remove(file.c_str());
    EXPECT_NE(runtimeError([&] { TSettings::loadJson(file); }).find("Failed to open settings file"), std::string::npos);
}

}  // namespace
}  // namespace Tavri
