#include <gtest/gtest.h>

#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::InSequence;
using ::testing::Return;

TEST(TriggerTest, EverySdkFailureIsLoggedInOrderAndTheFlagFollowsTheRequest) {
    DriverFixture f;
    f.open();
    for (Operation op : {Operation::sdkSetTriggerMode, Operation::sdkSetTriggerSource,
                         Operation::sdkSetTriggerActivation, Operation::sdkSetTriggerSequence})
        f.sdk.fail(op, 12);

    f.camera->softwareTrigger = true;
    f.camera->setCameraTriggerHardware();
    EXPECT_FALSE(f.camera->softwareTrigger);
    EXPECT_EQ(f.log->texts(1), std::vector<std::string>{"Setting trigger type to hardware"});
    EXPECT_EQ(f.log->texts(3), (std::vector<std::string>{
                                   "Failed to set camera trigger mode",
                                   "Failed to set camera trigger source",
                                   "Failed to set camera trigger activation",
                                   "Failed to set camera trigger sequence",
                               }));
    f.log->clear();
    f.camera->setCameraTriggerSoftware();
    EXPECT_TRUE(f.camera->softwareTrigger);
    EXPECT_EQ(f.log->texts(1), std::vector<std::string>{"Setting trigger type to software"});
    EXPECT_EQ(f.log->texts(3), (std::vector<std::string>{"Failed to set camera trigger mode",
                                                          "Failed to set camera trigger source"}));
}

TEST(TriggerTest, SoftwareKeepsThePolarityAndHardwareResetsIt) {
    DriverFixture f;
    f.open();
    {
        InSequence order;
        EXPECT_CALL(f.sdk, sdkSetTriggerMode(_, false));
        EXPECT_CALL(f.sdk, sdkSetTriggerSource(_, 64u));
    }
    EXPECT_CALL(f.sdk, sdkSetTriggerActivation(_, _)).Times(0);
    EXPECT_CALL(f.sdk, sdkSetTriggerSequence(_, _)).Times(0);
    f.sdk.activation = 1;
    f.camera->setCameraTriggerSoftware();
    EXPECT_EQ(f.sdk.activation, 1u);
    ::testing::Mock::VerifyAndClearExpectations(&f.sdk);
    f.camera->setCameraTriggerHardware();
    EXPECT_EQ(f.sdk.activation, 0u);
    EXPECT_TRUE(f.sdk.triggerMode);
}

// The camera stores its own idea of a value; the log shows both.
TEST(NumericControlTest, ReadBackLinesShowWhatTheCameraKept) {
    DriverFixture f;
    f.open();
    f.sdk.balanceStep = 0.1;
    f.camera->setRedBalance(1.28);
    f.camera->setBlueBalance(1.5);
    f.camera->setBlackLevel(3.14159);
    f.sdk.fail(Operation::sdkSetBlackLevel, 4);
    f.camera->setBlackLevel(99.0);
    f.sdk.fail(Operation::sdkGetBalanceRatio, 4);  // fails without writing
    f.camera->setRedBalance(2.0);
    f.camera->setExposureTime(8333.5);
    f.camera->setExposureTime(0.0);

    EXPECT_EQ(f.log->texts(1), (std::vector<std::string>{
                                   "Attempted to set red balance to 1.28. New red balance read from camera: 1.30",
                                   "Attempted to set blue balance to 1.50. New blue balance read from camera: 1.50",
                                   "Attempted to set black level to 3.14. New black level read from camera: 3.14",
                                   "Attempted to set black level to 99.00. New black level read from camera: 3.14",
                                   "Attempted to set red balance to 2.00. New red balance read from camera: 0.00",
                                   "Exposure time set to 8333.5",
                                   "Exposure time set to 0",
                               }));
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"Failed to set new black level"});
    EXPECT_EQ(f.sdk.exposure, 0.0) << "the zero guard is not here";

    f.sdk.fail(Operation::sdkSetExposureTime, 4);
    f.log->clear();
    EXPECT_EQ(runtimeError([&] { f.camera->setExposureTime(100.0); }), "Failed to set camera exposure");
    EXPECT_TRUE(f.log->texts().empty());

    EXPECT_CALL(f.sdk, sdkGetExposureTime(_, _)).WillOnce(Return(4u));
    EXPECT_EQ(f.camera->getExposureTime(), 0.0) << "a failed query yields a defined value";
}

TEST(ColorModeTest, SetModeSendsThePixelFormatOfEachMode) {
    struct Case {
        int mode;
        std::uint32_t format;  // 0: none sent
    };
    for (const Case& c : {Case{0, PixelFormat::Mono8}, Case{1, PixelFormat::RGB8}, Case{2, PixelFormat::BayerBG8},
                          Case{7, 0}, Case{-1, 0}}) {
        DriverFixture f;
        f.open();
        if (c.format)
            EXPECT_CALL(f.sdk, sdkSetPixelFormat(_, c.format)).WillOnce(Return(99u));
        else
            EXPECT_CALL(f.sdk, sdkSetPixelFormat(_, _)).Times(0);
        f.camera->setMode(static_cast<ImageType>(c.mode));
        EXPECT_EQ(static_cast<int>(f.camera->getMode()), c.mode);
        EXPECT_EQ(f.log->texts(), std::vector<std::string>{"Color mode set to " + std::to_string(c.mode)})
            << "a refused format is not reported";
    }
}

TEST(GeometryTest, SizesComeFromTheCameraAndFailuresThrow) {
    DriverFixture f({{"V", "M", "CAM0"}}, 640, 480);
    EXPECT_EQ(f.camera->getCols(), 640);
    EXPECT_EQ(f.camera->getRows(), 480);
    EXPECT_EQ(f.camera->getBayerLayout(), 2);

    EXPECT_CALL(f.sdk, sdkGetWidth(_, _)).Times(::testing::AnyNumber());
    EXPECT_CALL(f.sdk, sdkGetHeight(_, _)).Times(::testing::AnyNumber());
    EXPECT_CALL(f.sdk, sdkGetWidth(_, _)).WillOnce(Return(0u)).RetiresOnSaturation();
    EXPECT_CALL(f.sdk, sdkGetHeight(_, _)).WillOnce(Return(0u)).RetiresOnSaturation();
    EXPECT_EQ(f.camera->getCols(), 1920) << "success without a value leaves the preset";
    EXPECT_EQ(f.camera->getRows(), 1200);

    f.sdk.fail(Operation::sdkGetWidth, 3);
    f.sdk.fail(Operation::sdkGetHeight, 3);
    EXPECT_EQ(runtimeError([&] { f.camera->getCols(); }), "Could not get number of camera columns");
    EXPECT_EQ(runtimeError([&] { f.camera->getRows(); }), "Could not get number of camera rows.");
    EXPECT_TRUE(f.log->texts().empty());
}

}  // namespace
}  // namespace Tavri::testing
