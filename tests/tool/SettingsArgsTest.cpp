#include <gtest/gtest.h>

#include "SettingsArgs.h"
#include "ToolError.h"

namespace TeliGrab {
namespace {

TEST(SettingsArgs, ValuesThatParseFullyAsNumbersBecomeNumbers) {
    struct Case {
        std::string text, key;
        bool isNumber;
        double number;
        std::string word;
    } cases[] = {
        {"ExposureTime=20000", "ExposureTime", true, 20000, "20000"},
        {"Camera/Gain=-1.5", "Camera/Gain", true, -1.5, "-1.5"},
        {"RedBalance=1e-1", "RedBalance", true, 0.1, "1e-1"},
        {"Camera/TriggerType=Software", "Camera/TriggerType", false, 0, "Software"},
        {"Camera/Gain=5abc", "Camera/Gain", false, 0, "5abc"},
        {"Camera/Gain= 5", "Camera/Gain", false, 0, " 5"},
        {"Camera/Gain=nan", "Camera/Gain", false, 0, "nan"},
        {"Camera/Gain=inf", "Camera/Gain", false, 0, "inf"},
        {"Camera/ColorMode=", "Camera/ColorMode", false, 0, ""},
        {"A=b=c", "A", false, 0, "b=c"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const auto parsed = parseAssignment(c.text);
        EXPECT_EQ(parsed.key, c.key);
        EXPECT_EQ(parsed.isNumber, c.isNumber);
        if (c.isNumber) {
            EXPECT_DOUBLE_EQ(parsed.number, c.number);
        }
        EXPECT_EQ(parsed.word, c.word);
    }
}

TEST(SettingsArgs, MalformedAssignmentsAreUsageErrors) {
    for (const std::vector<std::string>& texts : std::vector<std::vector<std::string>>{
             {"ExposureTime"}, {"=5"}, {"Camera/Gain=2", "Camera=1"}}) {
        try {
            settingsFromAssignments(texts);
            ADD_FAILURE() << texts.back() << " accepted";
        } catch (const ToolError& error) {
            EXPECT_EQ(error.code(), ExitCode::Usage) << texts.back();
        }
    }
}

TEST(SettingsArgs, TreeHoldsPathsAsGroupsAndLaterValuesWin) {
    const auto tree = settingsFromAssignments({"Camera/Gain=2", "Camera/TriggerType=Software", "Camera/Gain=4"});
    ASSERT_TRUE(tree.has("Camera/Gain"));
    EXPECT_DOUBLE_EQ(tree["Camera/Gain"].toDouble(), 4.0);
    EXPECT_EQ(tree["Camera/TriggerType"].toString(), "Software");
    EXPECT_TRUE(tree["Camera"].isGroup());
}

}  // namespace
}  // namespace TeliGrab
