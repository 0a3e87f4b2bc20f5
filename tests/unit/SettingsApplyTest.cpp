#include <gtest/gtest.h>

#include <algorithm>

#include "TavriCommon/Exceptions.h"
#include "settings/CameraSettings.h"
#include "settings/SettingsOld.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::InSequence;
using ::testing::Return;

TEST(SettingsDescriptionTest, FreshlyOpenedCameraDescribesItsStartingState) {
    DriverFixture f;
    f.sdk.balanceStep = 1.0 / 64;
    f.open();
    const TSettings tree = f.camera->settings();
    EXPECT_EQ(tree.keys(), (std::vector<std::string>{"Camera", "ExposureTime", "RedBalance", "BlueBalance"}));
    EXPECT_EQ(tree["Camera"].keys(), (std::vector<std::string>{"BayerLayout", "ColorMode", "Gain", "BlackLevel",
                                                                "TriggerType", "TriggerPolarity"}));
    EXPECT_EQ(tree["Camera/BayerLayout"].toString(), "BGGR");
    EXPECT_EQ(tree["ExposureTime"].toDouble(), 8333.0);
    EXPECT_EQ(tree["Camera/ColorMode"].toString(), "Raw");
    EXPECT_EQ(tree["Camera/TriggerType"].toString(), "Hardware");
    EXPECT_EQ(tree["Camera/TriggerPolarity"].toString(), "FallingEdge");
    EXPECT_EQ(tree["RedBalance"].toDouble(), 120.0 / 64) << "1.875 lies on the camera's grid";
    EXPECT_EQ(tree["BlueBalance"].toDouble(), 82.0 / 64) << "1.281 is stored as the nearest step";
    EXPECT_TRUE(f.log->texts().empty());
    // The settings table has a row for each setting described, and no other.
    std::vector<std::string> described, rows;
    for (const auto& key : tree.keys())
        for (const auto& leaf : tree[key].isGroup() ? tree[key].keys() : std::vector<std::string>{""})
            described.push_back(leaf.empty() ? key : key + "/" + leaf);
    for (const auto& row : CameraSettings::table()) rows.push_back(row.key);
    std::sort(described.begin(), described.end());
    std::sort(rows.begin(), rows.end());
    EXPECT_EQ(described, rows);
}

TEST(SettingsDescriptionTest, WordsForTriggerModesPolaritiesAndIllegalModes) {
    struct Case {
        bool cameraTriggerMode;
        bool softwareFlag;
        std::uint32_t activation;
        int mode;
        const char *type, *polarity, *colorMode;
        std::vector<std::string> level3;
    };
    const Case cases[] = {
        {true, false, 0, 0, "Hardware", "FallingEdge", "Gray", {}},
        {false, true, 1, 1, "Software", "RisingEdge", "Color", {}},
        {false, false, 2, 9, "NoTrigger", "", "", {"Illegal color mode"}},
        {true, true, 1, -1, "Hardware", "RisingEdge", "", {"Illegal color mode"}},
    };
    for (const auto& c : cases) {
        DriverFixture f;
        f.open();
        f.sdk.triggerMode = c.cameraTriggerMode;
        f.sdk.activation = c.activation;
        f.camera->softwareTrigger = c.softwareFlag;
        f.camera->mode = c.mode;
        const TSettings tree = f.camera->settings();
        EXPECT_EQ(tree["Camera/TriggerType"].toString(), c.type);
        EXPECT_EQ(tree["Camera/TriggerPolarity"].toString(), c.polarity);
        EXPECT_EQ(tree["Camera/ColorMode"].toString(), c.colorMode);
        EXPECT_EQ(f.log->texts(3), c.level3);
    }
}

TEST(SettingsDescriptionTest, FailedQueriesYieldZeroes) {
    DriverFixture f;
    f.open();
    for (Operation op : {Operation::sdkGetExposureTime, Operation::sdkGetGain, Operation::sdkGetBlackLevel,
                         Operation::sdkGetBalanceRatio, Operation::sdkGetTriggerMode, Operation::sdkGetTriggerActivation})
        f.sdk.fail(op, 5);
    f.sdk.gain = 3.0;
    const TSettings tree = f.camera->settings();
    EXPECT_EQ(tree["ExposureTime"].toDouble(), 0.0);
    EXPECT_EQ(tree["Camera/Gain"].toDouble(), 0.0);
    EXPECT_EQ(tree["RedBalance"].toDouble(), 0.0);
    EXPECT_EQ(tree["Camera/TriggerType"].toString(), "NoTrigger");
    EXPECT_EQ(tree["Camera/TriggerPolarity"].toString(), "FallingEdge");
}

// Words match when the value contains them, ignoring case; the first word tried wins.
TEST(SettingsApplyTest, WordMatchingIsLenient) {
    struct Case {
        const char* key;
        std::string value;
        int mode;              // expected mode afterwards, -1: ArgumentInvalidException
        bool softwareFlag;     // after the call
        std::uint32_t activation;
        std::vector<std::string> level3;
    };
    namespace C = SettingsOld::Camera;
    const Case cases[] = {
        {"Camera/ColorMode", "grayscale", 0, false, 0, {}},
        {"Camera/ColorMode", "RAW", 2, false, 0, {}},
        {"Camera/ColorMode", "color", 1, false, 0, {}},
        {"Camera/ColorMode", "Colour", -1, false, 0, {}},
        {"Camera/ColorMode", "", -1, false, 0, {}},
        {"Camera/TriggerType", "hardware", 2, false, 0, {}},
        {"Camera/TriggerType", "Hardware or Software", 2, false, 0, {}},
        {"Camera/TriggerType", "SOFTWARE", 2, true, 0, {}},
        {"Camera/TriggerType", "NoTrigger", 2, true, 0, {"Cannot set trigger to none; using software trigger instead"}},
        {"Camera/TriggerType", "", 2, false, 0, {"Value for trigger type not recognized: "}},
        {"Camera/TriggerType", "Auto", 2, false, 0, {"Value for trigger type not recognized: Auto"}},
        {"Camera/TriggerPolarity", "risingedge", 2, false, 1, {}},
        {"Camera/TriggerPolarity", "FallingEdge or RisingEdge", 2, false, 0, {}},
        {"Camera/TriggerPolarity", "Rising", 2, false, 0, {"Value for trigger polarity not recognized: Rising"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " = '" + c.value + "'");
        DriverFixture f;
        f.open();
        TSettings tree("");
        tree.addString(c.key, c.value, "");
        if (c.mode < 0) {
            try {
                f.camera->updateSettings(tree);
                ADD_FAILURE() << "no exception";
            } catch (const ArgumentInvalidException& error) {
                EXPECT_EQ(std::string(error.what()),
                          "Invalid color mode. Invalid parameter: camSettings[SettingsOld::Camera::ColorMode] = \"" +
                              c.value + "\"");
            }
            EXPECT_EQ(f.camera->mode, 2) << "the mode is left as it was";
        } else {
            EXPECT_TRUE(f.camera->updateSettings(tree));
            EXPECT_EQ(f.camera->mode, c.mode);
        }
        EXPECT_EQ(f.camera->softwareTrigger, c.softwareFlag);
        EXPECT_EQ(f.sdk.activation, c.activation);
        EXPECT_EQ(f.log->texts(3), c.level3);
        EXPECT_EQ(f.sdk.pixelFormat, PixelFormat::BayerBG8) << "the colour-mode key sends no pixel format";
        (void)C::Name;
    }
}

TEST(SettingsApplyTest, KeysApplyInOrderUntilAnExceptionStops) {
    DriverFixture f;
    f.open();
    TSettings tree("");
    // Inserted out of order: the driver's own order of application rules.
    tree.addString("Camera/TriggerPolarity", "RisingEdge", "");
    tree.addString("Camera/TriggerType", "Hardware", "");
    tree.addDouble("RedBalance", 1.5, "");
    tree.addDouble("BlueBalance", 1.25, "");
    tree.addDouble("Camera/BlackLevel", 4.0, "");
    tree.addString("Camera/ColorMode", "Color", "");
    tree.addDouble("Camera/Gain", 2.0, "");
    tree.addDouble("ExposureTime", 5000.0, "");
    tree.addDouble("Camera/Gamma", 9.0, "");  // not the driver's: ignored
    {
        InSequence order;
        EXPECT_CALL(f.sdk, sdkSetExposureTime(_, 5000.0));
        EXPECT_CALL(f.sdk, sdkSetGain(_, 2.0));
        EXPECT_CALL(f.sdk, sdkSetBlackLevel(_, 4.0));
        EXPECT_CALL(f.sdk, sdkSetBalanceRatio(_, 2u, 1.25));
        EXPECT_CALL(f.sdk, sdkSetBalanceRatio(_, 1u, 1.5));
        EXPECT_CALL(f.sdk, sdkSetTriggerMode(_, true));
        EXPECT_CALL(f.sdk, sdkSetTriggerActivation(_, 0u));  // the hardware set-up resets the edge ...
        EXPECT_CALL(f.sdk, sdkSetTriggerActivation(_, 1u));  // ... before the polarity key applies
    }
    EXPECT_TRUE(f.camera->updateSettings(tree));
    EXPECT_EQ(f.camera->mode, 1);
    EXPECT_EQ(f.sdk.activation, 1u);
    EXPECT_EQ(f.log->texts(1).front(), "Updating camera settings");
    EXPECT_EQ(f.log->texts(1).back(), "Trigger activation set to rising edge");
    ::testing::Mock::VerifyAndClearExpectations(&f.sdk);

    // A colour mode that names no mode stops after exposure and gain.
    tree.addString("Camera/ColorMode", "Blue", "");
    tree.addDouble("ExposureTime", 6000.0, "");
    EXPECT_CALL(f.sdk, sdkSetBlackLevel(_, _)).Times(0);
    EXPECT_CALL(f.sdk, sdkSetBalanceRatio(_, _, _)).Times(0);
    EXPECT_CALL(f.sdk, sdkSetTriggerMode(_, _)).Times(0);
    EXPECT_THROW(f.camera->updateSettings(tree), ArgumentInvalidException);
    EXPECT_EQ(f.sdk.exposure, 6000.0);
}

TEST(SettingsApplyTest, GuardsAndRefusals) {
    DriverFixture f;
    TSettings tree("");
    tree.addDouble("ExposureTime", 0.0, "");
    tree.addDouble("Camera/Gain", 2.0, "");
    EXPECT_FALSE(f.camera->updateSettings(tree)) << "no camera open";
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"Could not update settings since camera was not yet initialized"});
    EXPECT_EQ(f.sdk.calls(Operation::sdkSetGain), 0);

    f.open();
    EXPECT_TRUE(f.camera->updateSettings(TSettings("")));
    EXPECT_EQ(f.log->texts(), std::vector<std::string>{"Updating camera settings"});
    f.log->clear();

    const double exposureBefore = f.sdk.exposure;
    tree.addDouble("ExposureTime", -0.0, "");
    EXPECT_TRUE(f.camera->updateSettings(tree));
    EXPECT_EQ(f.sdk.exposure, exposureBefore);
    EXPECT_EQ(f.sdk.gain, 2.0);
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"Received exposure time of 0 - skipping update"});

    tree.addDouble("ExposureTime", 100.0, "");
    f.sdk.fail(Operation::sdkSetExposureTime, 2);
    EXPECT_EQ(runtimeError([&] { f.camera->updateSettings(tree); }), "Failed to set camera exposure");

    TSettings wrongKind("");
    wrongKind.addString("Camera/Gain", "high", "");
    EXPECT_EQ(runtimeError([&] { f.camera->updateSettings(wrongKind); }),
              "Setting 'Camera/Gain' is a word, not a number");
}

}  // namespace
}  // namespace Tavri::testing
