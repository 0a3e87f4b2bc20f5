#include <gtest/gtest.h>

#include "SettingsArgs.h"

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

}  // namespace
}  // namespace TeliGrab
