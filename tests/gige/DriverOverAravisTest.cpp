// The driver over the Aravis backend, against fake GigE cameras: what a host sees
// of a GigE camera, including one without the features a Teli camera has and one
// that dies mid-stream.

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"
#include "settings/SettingsOld.h"
#include "tests/gige/GigeCameras.h"
#include "tests/support/RecordingLogger.h"

namespace Tavri {
namespace {

namespace Camera = SettingsOld::Camera;
using gige::fixtureSerial;
using gige::stockSerials;

bool logged(testing::RecordingLogger& logger, int level, const std::string& text) {
    const auto texts = logger.texts(level);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// The plug-in as the platform drives it: entry points, backend chosen by
// TAVRI_TELI_SDK, one camera object.
class DriverOverAravis : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(gige::interfacesBesidesLoopback(), "") << "not inside the GigE test namespace";
        ::setenv("TAVRI_TELI_SDK", "aravis", 1);
        initializeDriver();
        camera.reset(createCamera());
    }
    void TearDown() override {
        if (!camera) return;
        camera.reset();
        releaseDriver();
    }

    // Mono8 at gain 0 and exposure 10000 us, so images carry the fake camera's
    // pattern unscaled; with the trigger type asked for.
    void plainPattern(const std::string& triggerType) {
        camera->setMode(ImageType::Gray);
        TSettings settings;
        settings.addDouble(SettingsOld::ExposureTime, 10000.0, "");
        settings.addDouble(Camera::Gain, 0.0, "");
        settings.addString(Camera::TriggerType, triggerType, "");
        ASSERT_TRUE(camera->updateSettings(settings));
    }

    testing::ScopedRecordingLogger logger;
    std::unique_ptr<CameraDriver> camera;
};

TEST_F(DriverOverAravis, ListsEveryCameraWithItsSerial) {
    const auto cameras = camera->getInfoInternalCameras();
    const auto expected = gige::allSerials();
    ASSERT_EQ(cameras.size(), expected.size());
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        EXPECT_EQ(cameras[i].serialNumber, expected[i]);
        EXPECT_EQ(cameras[i].vendor, "Aravis");
        EXPECT_EQ(cameras[i].model, expected[i] == fixtureSerial() ? "TavriFixture" : "Fake");
    }
}

TEST_F(DriverOverAravis, OpensBySerialAndRoundTripsSettings) {
    ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str()));
    EXPECT_TRUE(camera->isConnected());
    EXPECT_EQ(camera->getCols(), 640);
    EXPECT_EQ(camera->getRows(), 480);

    // The starting configuration, as the camera stored it.
    TSettings start = camera->settings();
    EXPECT_DOUBLE_EQ(start[SettingsOld::ExposureTime].toDouble(), 8333.0);
    EXPECT_DOUBLE_EQ(start[SettingsOld::RedBalance].toDouble(), 1.875);
    EXPECT_DOUBLE_EQ(start[SettingsOld::BlueBalance].toDouble(), 82.0 / 64);  // 1.281 on the 1/64 grid
    EXPECT_EQ(start[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Hardware);
    EXPECT_EQ(start[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::FallingEdge);
    EXPECT_EQ(start[Camera::ColorMode].toString(), Camera::ColorModeValues::Raw);

    TSettings wanted;
    wanted.addDouble(SettingsOld::ExposureTime, 5000.0, "");
    wanted.addDouble(Camera::Gain, 2.0, "");
    wanted.addDouble(Camera::BlackLevel, 4.5, "");
    wanted.addDouble(SettingsOld::RedBalance, 1.5, "");
    wanted.addDouble(SettingsOld::BlueBalance, 2.0, "");
    wanted.addString(Camera::ColorMode, Camera::ColorModeValues::Gray, "");
    wanted.addString(Camera::TriggerType, Camera::TriggerTypeValues::Software, "");
    wanted.addString(Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge, "");
    ASSERT_TRUE(camera->updateSettings(wanted));

    TSettings now = camera->settings();
    EXPECT_DOUBLE_EQ(now[SettingsOld::ExposureTime].toDouble(), 5000.0);
    EXPECT_DOUBLE_EQ(now[Camera::Gain].toDouble(), 2.0);
    EXPECT_DOUBLE_EQ(now[Camera::BlackLevel].toDouble(), 4.5);
    EXPECT_DOUBLE_EQ(now[SettingsOld::RedBalance].toDouble(), 1.5);
    EXPECT_DOUBLE_EQ(now[SettingsOld::BlueBalance].toDouble(), 2.0);
    EXPECT_EQ(now[Camera::ColorMode].toString(), Camera::ColorModeValues::Gray);
    EXPECT_EQ(now[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Software);
    EXPECT_EQ(now[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
    EXPECT_TRUE(logged(*logger, 1, "Attempted to set black level to 4.50. New black level read from camera: 4.50"));
    EXPECT_TRUE(logger->texts(3).empty()) << logger->texts(3).front();
    camera->releaseCamera();
}

// The stock fake camera has no BlackLevel, no BalanceRatio and no FallingEdge: the
// camera still opens, and each refusal is logged where the driver logs it.
TEST_F(DriverOverAravis, CameraWithoutTeliFeaturesOpensAndLogsWhatItRefuses) {
    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    EXPECT_TRUE(logged(*logger, 3, "Failed to set camera trigger activation"));
    EXPECT_EQ(camera->getCols(), 2048);
    EXPECT_EQ(camera->getRows(), 2048);

    TSettings wanted;
    wanted.addDouble(Camera::BlackLevel, 4.5, "");
    wanted.addDouble(SettingsOld::RedBalance, 1.5, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    EXPECT_TRUE(logged(*logger, 3, "Failed to set new black level"));
    EXPECT_TRUE(logged(*logger, 1, "Attempted to set black level to 4.50. New black level read from camera: 0.00"));
    EXPECT_TRUE(logged(*logger, 1, "Attempted to set red balance to 1.50. New red balance read from camera: 0.00"));

    TSettings now = camera->settings();
    EXPECT_DOUBLE_EQ(now[SettingsOld::ExposureTime].toDouble(), 8333.0);  // kept as ExposureTimeAbs
    EXPECT_EQ(now[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Hardware);
    EXPECT_EQ(now[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
    camera->releaseCamera();
}

TEST_F(DriverOverAravis, SoftwareGrabCarriesTheFakeCameraPattern) {
    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    plainPattern(Camera::TriggerTypeValues::Software);
    for (int i = 0; i < 2; ++i) {
        const cv::Mat image = camera->grab();
        ASSERT_EQ(image.type(), CV_8UC1);
        ASSERT_EQ(image.cols, 2048);
        ASSERT_EQ(image.rows, 2048);
        EXPECT_EQ(gige::patternMismatches(image.data, 2048, 2048), 0u) << "grab " << i;
    }
    camera->releaseCamera();
}

TEST_F(DriverOverAravis, ContinuousGrabDeliversImageAfterImage) {
    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    plainPattern(Camera::TriggerTypeValues::Software);
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    int previous = -1;
    for (int i = 0; i < 10; ++i) {
        camera->getNextImage(image, 2000);
        EXPECT_EQ(gige::patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
        EXPECT_NE(image.data[0], previous) << "image " << i << " repeats its predecessor";
        previous = image.data[0];
    }
    camera->releaseGrabContinuous();
    camera->releaseCamera();
}

TEST_F(DriverOverAravis, HardwareTriggeredSequenceTakesOneImagePerPulse) {
    constexpr int kImages = 12;
    ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str()));
    plainPattern(Camera::TriggerTypeValues::Hardware);
    camera->startGrabSequenceAsync(kImages);
    gige::pulseTriggerLine(kImages);
    const auto set = camera->finishGrabSequenceAsync();
    ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
    EXPECT_FALSE(logged(*logger, 3, "An unknown error occured"));
    for (int i = 0; i < kImages; ++i) {
        const cv::Mat& image = set->images[i];
        EXPECT_EQ(gige::patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
        // Pulses come one at a time: frame numbers run on without a gap.
        if (i > 0) {
            EXPECT_EQ(image.data[0], (set->images[i - 1].data[0] + 1) % 255) << "image " << i;
        }
    }
    camera->releaseCamera();
}

TEST_F(DriverOverAravis, CameraKilledMidStreamFailsAsSpecifiedWithoutHanging) {
    const std::string victim = stockSerials().back();
    ASSERT_TRUE(camera->initializeCamera(victim.c_str()));
    plainPattern(Camera::TriggerTypeValues::Software);
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    camera->getNextImage(image, 2000);
    ASSERT_TRUE(gige::killCamera(victim));

    // Images already on their way may still arrive; then the software trigger the
    // driver sends before each wait goes unanswered.
    std::string failure;
    for (int i = 0; i <= 130 && failure.empty(); ++i) {
        try {
            camera->getNextImage(image, 1000);
        } catch (const RuntimeException& e) {
            failure = e.what();
        }
    }
    EXPECT_EQ(failure, "Failed to send software trigger signal to camera");

    bool connected = true;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (connected && std::chrono::steady_clock::now() < deadline) connected = camera->isConnected();
    EXPECT_FALSE(connected);
    EXPECT_TRUE(logged(*logger, 1, "Failed to get camera info"));

    try {
        camera->releaseGrabContinuous();
        ADD_FAILURE() << "stopping a dead camera's stream succeeded";
    } catch (const RuntimeException& e) {
        EXPECT_STREQ(e.what(), "Failed to stop camera stream.");
    }
    camera->releaseCamera();
}

}  // namespace
}  // namespace Tavri
