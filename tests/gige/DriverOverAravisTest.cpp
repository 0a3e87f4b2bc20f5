// The driver over the Aravis backend, against fake GigE cameras: what a host sees of
// a GigE camera, including one without the features a Teli camera has and one that
// dies mid-stream. The driver's own behaviour is tested over a mock SDK; here the
// peer is a real GigE camera.

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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
using gige::patternMismatches;
using gige::stockSerials;

// The plug-in as the platform drives it: entry points, backend chosen by
// TAVRI_TELI_SDK, one camera object.
class DriverOverAravis : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("TAVRI_TELI_SDK", "aravis", 1);
        initializeDriver();
        camera.reset(createCamera());
    }
    void TearDown() override {
        camera->releaseCamera();
        camera.reset();
        releaseDriver();
    }

    // Opens `serial` showing the fake camera's pattern unscaled (Mono8, gain 0,
    // exposure 10000 us), triggered as asked.
    void openShowingPattern(const std::string& serial, const std::string& triggerType) {
        ASSERT_TRUE(camera->initializeCamera(serial.c_str()));
        camera->setMode(ImageType::Gray);
        TSettings settings;
        settings.addDouble(SettingsOld::ExposureTime, 10000.0, "");
        settings.addDouble(Camera::Gain, 0.0, "");
        settings.addString(Camera::TriggerType, triggerType, "");
        ASSERT_TRUE(camera->updateSettings(settings));
    }
    bool logged(int level, const std::string& text) {
        const auto texts = logger->texts(level);
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    testing::ScopedRecordingLogger logger;
    std::unique_ptr<CameraDriver> camera;
};

TEST_F(DriverOverAravis, OpensBySerialAndRoundTripsSettings) {
    ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str()));
    EXPECT_TRUE(camera->isConnected());
    EXPECT_EQ(camera->getCols(), 640);
    EXPECT_EQ(camera->getRows(), 480);
    // Read from the camera, not kept by the driver: the fixture holds ratios on a 1/64 grid.
    EXPECT_DOUBLE_EQ(camera->settings()[SettingsOld::BlueBalance].toDouble(), 82.0 / 64);  // 1.281 stored
    EXPECT_EQ(camera->settings()[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::FallingEdge);

    const std::vector<std::pair<std::string, double>> numbers{
        {SettingsOld::ExposureTime, 5000.0}, {Camera::Gain, 2.0}, {Camera::BlackLevel, 4.5},
        {SettingsOld::RedBalance, 1.5},      {SettingsOld::BlueBalance, 2.0}};
    const std::vector<std::pair<std::string, std::string>> words{
        {Camera::ColorMode, Camera::ColorModeValues::Gray},
        {Camera::TriggerType, Camera::TriggerTypeValues::Software},
        {Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge}};
    TSettings wanted;
    for (const auto& [key, value] : numbers) wanted.addDouble(key, value, "");
    for (const auto& [key, value] : words) wanted.addString(key, value, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    const TSettings now = camera->settings();
    for (const auto& [key, value] : numbers) EXPECT_DOUBLE_EQ(now[key].toDouble(), value) << key;
    for (const auto& [key, value] : words) EXPECT_EQ(now[key].toString(), value) << key;
    EXPECT_TRUE(logger->texts(3).empty()) << logger->texts(3).front();
}

// The stock fake camera has no BlackLevel, no BalanceRatio and no FallingEdge: the
// camera still opens, and each refusal is logged where the driver logs it.
TEST_F(DriverOverAravis, CameraWithoutTeliFeaturesOpensAndLogsWhatItRefuses) {
    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    EXPECT_TRUE(logged(3, "Failed to set camera trigger activation"));
    TSettings wanted;
    wanted.addDouble(Camera::BlackLevel, 4.5, "");
    wanted.addDouble(SettingsOld::RedBalance, 1.5, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    EXPECT_TRUE(logged(3, "Failed to set new black level"));
    EXPECT_TRUE(logged(1, "Attempted to set red balance to 1.50. New red balance read from camera: 0.00"));

    const TSettings now = camera->settings();
    EXPECT_DOUBLE_EQ(now[SettingsOld::ExposureTime].toDouble(), 8333.0);  // kept as ExposureTimeAbs
    EXPECT_EQ(now[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
}

// Each image is software-triggered by the driver and carries the pattern whole.
TEST_F(DriverOverAravis, ContinuousGrabDeliversImageAfterImage) {
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(stockSerials().front(), Camera::TriggerTypeValues::Software));
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    int previous = -1;
    for (int i = 0; i < 10; ++i) {
        camera->getNextImage(image, 2000);
        EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
        EXPECT_NE(image.data[0], previous) << "image " << i << " repeats its predecessor";
        previous = image.data[0];
    }
    camera->releaseGrabContinuous();
}

TEST_F(DriverOverAravis, HardwareTriggeredSequenceTakesOneImagePerPulse) {
    constexpr int kImages = 12;
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(fixtureSerial(), Camera::TriggerTypeValues::Hardware));
    camera->startGrabSequenceAsync(kImages);
    gige::pulseTriggerLine(kImages);
    const auto set = camera->finishGrabSequenceAsync();
    ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
    for (int i = 0; i < kImages; ++i) {
        const cv::Mat& image = set->images[i];
        ASSERT_EQ(image.size(), cv::Size(640, 480)) << "image " << i;
        EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
    }
    // Pulses come one at a time: frame numbers run on without a gap.
    for (int i = 1; i < kImages; ++i)
        EXPECT_EQ(set->images[i].data[0], (set->images[i - 1].data[0] + 1) % 255) << "image " << i;
}

TEST_F(DriverOverAravis, CameraKilledMidStreamFailsWithTheDriversErrorsWithoutHanging) {
    const std::string victim = stockSerials().back();
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(victim, Camera::TriggerTypeValues::Software));
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
    EXPECT_THROW(camera->releaseGrabContinuous(), RuntimeException);
}

}  // namespace
}  // namespace Tavri
