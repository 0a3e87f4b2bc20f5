#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

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

// A settings file is read with the position of every key, so each fault names its
// line and column; a word may be written as `settings` writes a word with a range.
TEST(SettingsFile, AcceptsWhatSettingsWritesAndRefusesFaultsAtTheirKey) {
    const std::string fileName = ::testing::TempDir() + "settings-file-test.json";
    const struct {
        const char* text;
        std::string error;  // empty: accepted
    } cases[] = {
        {R"({"Camera": {"ColorMode": {"$value": "Gray", "$range": ["Gray", "Color"]}, "Gain": 2}})", ""},
        {R"({"Camera": {"BayerLayout": "BGGR", "TriggerType": "hardware"}, "ExposureTime": 9000})", ""},
        {"{\n  \"Camera\": {\n    \"Ga\\\"in\": 3}}", ":3:5: unknown key 'Camera/Ga\"in'"},
        {"{\"RedBalance\": 1,\n \"BlueBalance\": [1, 2]}", ":2:2: BlueBalance must be a number, not an array"},
        {R"({"Camera": {"ColorMode": {"$value": 3}}})", ":1:13: Camera/ColorMode must be a word (Gray, Color, Raw), not 3"},
        {R"({"Camera": {"TriggerPolarity": null}})", ":1:13: Camera/TriggerPolarity must be a word"},
        {R"({"Camera": 1})", ":1:2: 'Camera' is a group of settings, not a value"},
        {R"({"ExposureTime": -1e999})", ":1:2: ExposureTime: number overflow parsing '-1e999'"},
        {R"([1])", ":1:1: a settings file holds one JSON object"},
        {"", ":1:1: syntax error"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::ofstream(fileName, std::ios::trunc) << c.text;
        try {
            const auto checked = loadSettingsFile(fileName);
            EXPECT_EQ(c.error, "") << "accepted";
            EXPECT_TRUE(checked.has("Camera/Gain") || checked.has("ExposureTime"));
        } catch (const ToolError& error) {
            EXPECT_EQ(error.code(), ExitCode::BadSettingsFile);
            EXPECT_THAT(error.what(), ::testing::StartsWith(fileName + c.error)) << "expected " << c.error;
            EXPECT_FALSE(c.error.empty()) << error.what();
        }
    }
    std::remove(fileName.c_str());
}

}  // namespace
}  // namespace TeliGrab
