// The Windows plug-in as the platform uses it: tavri_toshiba_teli.dll loaded with
// LoadLibrary, its three entry points found by name, the cameras driven through
// CameraDriver, with the stand-in TeliCamApi64.dll (the simulated rig) behind the
// driver's default backend, the vendor DLL binding.

#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TavriAPI/CameraDriver.h"
#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"
#include "sdk/sim/SimSdk.h"
#include "settings/SettingsOld.h"
#include "platform/PluginLibrary.h"
#include "tests/support/ThrownMessage.h"

namespace Tavri {
namespace {

// The plug-in beside this program, loaded as the platform loads it, with its three
// entry points.
struct Plugin : platform::PluginLibrary, platform::DriverEntryPoints {
    Plugin()
        : platform::PluginLibrary(platform::PluginLibrary::defaultPath()),
          platform::DriverEntryPoints(static_cast<const platform::PluginLibrary&>(*this)) {}
};

using testing::runtimeError;

// The rig's stamp in an image of the given pixel format.
sim::FrameStamp stampOf(const cv::Mat& image, std::uint32_t pixelFormat) {
    sim::FrameStamp stamp;
    stamp.frame = 0xFFFFFFFFu;
    EXPECT_TRUE(image.isContinuous());
    EXPECT_TRUE(sim::readStamp(image.data, static_cast<std::uint32_t>(image.cols),
                               static_cast<std::uint32_t>(image.rows), pixelFormat, &stamp));
    return stamp;
}

class PluginOverStandIn : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_NO_THROW(plugin = new Plugin) << "tavri_toshiba_teli.dll or one of its entry points is missing";
        plugin->initializeDriver();
    }
    static void TearDownTestSuite() {
        if (plugin) plugin->releaseDriver();
        delete plugin;
        plugin = nullptr;
    }
    void SetUp() override {
        ASSERT_NE(plugin, nullptr);
        camera.reset(plugin->createCamera());
        ASSERT_NE(camera, nullptr);
    }
    // Opens the rig's second camera, so the serial really has to be looked up.
    void open() {
        ASSERT_TRUE(camera->initializeCamera(rig.cameras.at(1).serial.c_str()));
        ASSERT_TRUE(camera->isConnected());
        ASSERT_EQ(camera->getCols(), static_cast<int>(rig.cameras[1].width));
        ASSERT_EQ(camera->getRows(), static_cast<int>(rig.cameras[1].height));
    }
    void TearDown() override {
        if (camera) camera->releaseCamera();
    }

    static Plugin* plugin;
    const sim::RigConfig rig = sim::rigFromEnvironment();
    std::unique_ptr<CameraDriver> camera;
};
Plugin* PluginOverStandIn::plugin = nullptr;

TEST_F(PluginOverStandIn, ListsTheRigsCameras) {
    const std::vector<InternalCameraInfo> cameras = camera->getInfoInternalCameras();
    ASSERT_EQ(cameras.size(), rig.cameras.size());
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        EXPECT_EQ(cameras[i].serialNumber, rig.cameras[i].serial);
        EXPECT_EQ(cameras[i].vendor, rig.cameras[i].vendor);
        EXPECT_EQ(cameras[i].model, rig.cameras[i].model);
    }
}

// Values between the camera's steps: what comes back is what the camera stored, so
// every double crossed the DLL boundary both ways.
TEST_F(PluginOverStandIn, AppliesSettingsAndReadsThemBack) {
    open();
    namespace Camera = SettingsOld::Camera;
    struct Case {
        std::string key;
        double value;
        double stored;
    };
    const std::vector<Case> numbers{
        {SettingsOld::ExposureTime, 12345.4, 12345.0},
        {Camera::Gain, 3.14, 3.1},
        {Camera::BlackLevel, 10.3, 10.25},
        {SettingsOld::RedBalance, 1.9, 0.25 + 106.0 / 64.0},
        {SettingsOld::BlueBalance, 1.3, 0.25 + 67.0 / 64.0},
    };
    const std::vector<std::pair<std::string, std::string>> words{
        {Camera::TriggerType, Camera::TriggerTypeValues::Software},
        {Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge},
        {Camera::ColorMode, Camera::ColorModeValues::Gray},
    };
    TSettings wanted("");
    for (const Case& c : numbers) wanted.addDouble(c.key, c.value, "");
    for (const auto& [key, word] : words) wanted.addString(key, word, "");
    ASSERT_TRUE(camera->updateSettings(wanted));

    const TSettings read = camera->settings();
    for (const Case& c : numbers) {
        ASSERT_TRUE(read.has(c.key)) << c.key;
        EXPECT_NEAR(read[c.key].toDouble(), c.stored, 1e-9) << c.key;
    }
    for (const auto& [key, word] : words) {
        ASSERT_TRUE(read.has(key)) << key;
        EXPECT_EQ(read[key].toString(), word) << key;
    }
    EXPECT_EQ(camera->getMode(), ImageType::Gray);
}

// Hardware trigger, as opened: each image comes from the rig's projector, and the
// first after a start is its first pattern. Each grab on a freshly opened camera: a
// second grab on the same stream may find the event still signalled by a frame that
// completed after the first grab's take (and that the stop then drained).
TEST_F(PluginOverStandIn, GrabsInEveryColourModeAfterReopening) {
    const std::pair<ImageType, std::uint32_t> modes[] = {
        {ImageType::Raw, PixelFormat::BayerBG8},
        {ImageType::Gray, PixelFormat::Mono8},
        {ImageType::Color, PixelFormat::RGB8},
    };
    for (const auto& [mode, pixelFormat] : modes) {
        SCOPED_TRACE(static_cast<int>(mode));
        open();
        camera->setMode(mode);
        const cv::Mat image = camera->grab();
        ASSERT_EQ(image.size(), cv::Size(camera->getCols(), camera->getRows()));
        ASSERT_EQ(image.type(), mode == ImageType::Color ? CV_8UC3 : CV_8UC1);
        const sim::FrameStamp stamp = stampOf(image, pixelFormat);
        EXPECT_EQ(stamp.frame, 0u);
        EXPECT_EQ(stamp.pattern, 0u);
        camera->releaseCamera();
    }
}

TEST_F(PluginOverStandIn, CollectsAHardwareTriggeredSequenceOfTwelve) {
    open();
    camera->setMode(ImageType::Raw);
    camera->startGrabSequenceAsync(12);
    const std::shared_ptr<ImageSet> set = camera->finishGrabSequenceAsync();
    ASSERT_NE(set, nullptr);
    ASSERT_EQ(set->images.size(), 12u);
    for (std::size_t i = 0; i < set->images.size(); ++i) {
        const sim::FrameStamp stamp = stampOf(set->images[i], PixelFormat::BayerBG8);
        EXPECT_EQ(stamp.frame, i) << "image " << i;
        EXPECT_EQ(stamp.pattern, i) << "image " << i;
    }
}

TEST_F(PluginOverStandIn, GrabsContinuouslyWithSoftwareTriggers) {
    open();
    TSettings software("");
    software.addString(SettingsOld::Camera::TriggerType, SettingsOld::Camera::TriggerTypeValues::Software, "");
    ASSERT_TRUE(camera->updateSettings(software));
    camera->setMode(ImageType::Gray);
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    for (std::uint32_t i = 0; i < 5; ++i) {
        camera->getNextImage(image, 5000);
        const sim::FrameStamp stamp = stampOf(image, PixelFormat::Mono8);
        EXPECT_EQ(stamp.frame, i);
        EXPECT_EQ(stamp.pattern, sim::kNoPattern) << "a software trigger, not the projector";
    }
    camera->releaseGrabContinuous();
}

TEST_F(PluginOverStandIn, WaitWithoutAcquisitionTimesOut) {
    open();
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    EXPECT_EQ(runtimeError([&] { camera->getNextImage(image, 300); }), "Failed to wait for camera image completion");
}

// Run in processes of their own (see CMakeLists.txt): the driver must refuse to load
// an incomplete or absent vendor DLL and say which.
TEST(PluginWithoutVendorDll, InitializeNamesTheMissingDll) {
    Plugin plugin;
    EXPECT_EQ(runtimeError(plugin.initializeDriver), "Failed to load the camera SDK TeliCamApi64.dll (Windows error 126)");
}

TEST(PluginWithIncompleteVendorDll, InitializeNamesTheMissingOrdinal) {
    Plugin plugin;
    EXPECT_EQ(runtimeError(plugin.initializeDriver), "TeliCamApi64.dll lacks ordinal 233 (sdkExecuteSoftwareTrigger)");
}

}  // namespace
}  // namespace Tavri
