// The whole driver over the simulated rig, through the plug-in's entry points:
// discovery and open by serial, settings round trip, hardware-triggered sequences
// whose image k shows pattern k, single and continuous grabs in both trigger types,
// and faults that end in the driver's specified error with nothing hung or leaked.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Exceptions.h"
#include "sdk/sim/SimSdk.h"
#include "settings/SettingsOld.h"
#include "tests/support/RecordingLogger.h"

namespace Tavri::sim::test {
namespace {

using Clock = std::chrono::steady_clock;
namespace Camera = SettingsOld::Camera;

constexpr std::uint32_t kWidth = 640, kHeight = 480;

RigConfig testRig() {
    RigConfig rig = defaultRig();
    for (auto& camera : rig.cameras) {
        camera.width = kWidth;
        camera.height = kHeight;
    }
    rig.projector.rate = 100.0;
    rig.frameRate = 60.0;
    return rig;
}

std::uint32_t formatOf(ImageType mode) {
    return mode == ImageType::Color ? PixelFormat::RGB8 : mode == ImageType::Gray ? PixelFormat::Mono8 : PixelFormat::BayerBG8;
}

FrameStamp stampOf(const cv::Mat& image, ImageType mode) {
    FrameStamp stamp;
    EXPECT_TRUE(readStamp(image.data, static_cast<std::uint32_t>(image.cols), static_cast<std::uint32_t>(image.rows),
                          formatOf(mode), &stamp));
    return stamp;
}

// What the driver's starting configuration makes the camera deliver.
FrameSettings openedSettings(ImageType mode, std::uint32_t width, std::uint32_t height) {
    FrameSettings s;
    s.pixelFormat = formatOf(mode);
    s.width = width;
    s.height = height;
    s.exposure = 8333.0;
    s.redRatio = 1.875;
    s.blueRatio = 82.0 / 64.0;  // 1.281 on the 1/64 grid
    return s;
}

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

class DriverOverSim : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("TAVRI_TELI_SDK", "sim", 1);
        initializeDriver();
        rig = &dynamic_cast<SimSdk&>(activeSdk());
        ASSERT_TRUE(rig->setRig(testRig()));
        camera.reset(createCamera());
    }
    void TearDown() override {
        camera->releaseCamera();
        EXPECT_EQ(rig->runningThreads(), 0u) << "a producer thread was left running";
        EXPECT_EQ(rig->openHandles(), 0u) << "the driver left SDK handles open";
        camera.reset();
        releaseDriver();
    }
    void open(const char* serial = "SIM0001") { ASSERT_TRUE(camera->initializeCamera(serial)); }
    void apply(const std::function<void(TSettings&)>& fill) {
        TSettings tree("");
        fill(tree);
        ASSERT_TRUE(camera->updateSettings(tree));
    }
    void softwareTrigger() {
        apply([](TSettings& t) { t.addString(Camera::TriggerType, Camera::TriggerTypeValues::Software, ""); });
    }
    // Runs a grab sequence of n images and returns the set.
    std::shared_ptr<ImageSet> sequence(int n) {
        camera->startGrabSequenceAsync(n);
        return camera->finishGrabSequenceAsync();
    }

    testing::ScopedRecordingLogger log;
    SimSdk* rig = nullptr;
    std::unique_ptr<CameraDriver> camera;
};

TEST_F(DriverOverSim, ListsTheRigAndOpensEachCameraBySerial) {
    const auto cameras = camera->getInfoInternalCameras();
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_EQ(cameras[0].serialNumber, "SIM0001");
    EXPECT_EQ(cameras[1].serialNumber, "SIM0002");
    EXPECT_EQ(cameras[0].vendor, "Toshiba Teli (simulated)");
    EXPECT_EQ(cameras[0].model, "BU205MCF");

    open("SIM0002");
    EXPECT_TRUE(camera->isConnected());
    EXPECT_EQ(camera->getCols(), static_cast<int>(kWidth));
    EXPECT_EQ(camera->getRows(), static_cast<int>(kHeight));
    EXPECT_EQ(camera->getMode(), ImageType::Raw);
    // The second camera object may not open the camera the first one holds.
    std::unique_ptr<CameraDriver> other(createCamera());
    EXPECT_EQ(messageOf([&] { other->initializeCamera("SIM0002"); }), "Failed to open camera.");
    other->releaseCamera();
    EXPECT_EQ(messageOf([&] { other->initializeCamera("SIM0003"); }),
              "Failed to locate a camera with serial number SIM0003");
}

TEST_F(DriverOverSim, SettingsRoundTripAsTheCameraStoresThem) {
    open();
    const TSettings opened = camera->settings();
    EXPECT_EQ(opened[SettingsOld::ExposureTime].toDouble(), 8333.0);
    EXPECT_EQ(opened[SettingsOld::BlueBalance].toDouble(), 82.0 / 64.0);
    EXPECT_EQ(opened[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Hardware);
    EXPECT_EQ(opened[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::FallingEdge);

    apply([](TSettings& t) {
        t.addDouble(SettingsOld::ExposureTime, 5000.4, "");
        t.addDouble(Camera::Gain, 6.04, "");
        t.addDouble(Camera::BlackLevel, 3.3, "");
        t.addDouble(SettingsOld::RedBalance, 1.9, "");
        t.addDouble(SettingsOld::BlueBalance, 1.5, "");
        t.addString(Camera::ColorMode, Camera::ColorModeValues::Gray, "");
        t.addString(Camera::TriggerType, Camera::TriggerTypeValues::Software, "");
        t.addString(Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge, "");
    });
    const TSettings read = camera->settings();
    EXPECT_EQ(read[SettingsOld::ExposureTime].toDouble(), 5000.0);
    EXPECT_NEAR(read[Camera::Gain].toDouble(), 6.0, 1e-9);
    EXPECT_EQ(read[Camera::BlackLevel].toDouble(), 3.25);
    EXPECT_EQ(read[SettingsOld::RedBalance].toDouble(), 122.0 / 64.0);
    EXPECT_EQ(read[SettingsOld::BlueBalance].toDouble(), 1.5);
    EXPECT_EQ(read[Camera::ColorMode].toString(), Camera::ColorModeValues::Gray);
    EXPECT_EQ(read[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Software);
    EXPECT_EQ(read[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);

    // A value the camera refuses leaves the stored one.
    EXPECT_EQ(messageOf([&] {
                  TSettings t("");
                  t.addDouble(SettingsOld::ExposureTime, 5e6, "");
                  camera->updateSettings(t);
              }),
              "Failed to set camera exposure");
    EXPECT_EQ(camera->settings()[SettingsOld::ExposureTime].toDouble(), 5000.0);
}

TEST_F(DriverOverSim, HardwareTriggeredSequencesShowPatternKInImageK) {
    open();
    for (ImageType mode : {ImageType::Raw, ImageType::Color}) {
        camera->setMode(mode);
        for (int n : {1, 12, 120}) {
            SCOPED_TRACE("mode " + std::to_string(static_cast<int>(mode)) + ", n = " + std::to_string(n));
            const auto set = sequence(n);
            ASSERT_EQ(set->images.size(), static_cast<std::size_t>(n));
            for (int k = 0; k < n; ++k) {
                const cv::Mat& image = set->images[k];
                ASSERT_EQ(image.channels(), mode == ImageType::Color ? 3 : 1);
                EXPECT_EQ(stampOf(image, mode).pattern, static_cast<std::uint32_t>(k)) << "image " << k;
            }
            // The first images are exactly what the rig renders for their patterns.
            for (int k = 0; k < std::min(n, 3); ++k) {
                const auto expected = renderFrame(rig->rig(), 0, openedSettings(mode, kWidth, kHeight), k, k);
                ASSERT_EQ(expected.size(), static_cast<std::size_t>(set->bytesPerImage));
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), set->images[k].data)) << "image " << k;
            }
        }
    }
    for (const auto& text : log->texts(3)) ADD_FAILURE() << "unexpected level-3 message: " << text;
}

TEST_F(DriverOverSim, FullSizeDefaultCameraDeliversItsSequence) {
    ASSERT_TRUE(rig->setRig(defaultRig()));
    open();
    EXPECT_EQ(camera->getCols(), 1920);
    EXPECT_EQ(camera->getRows(), 1200);
    const auto set = sequence(12);
    for (int k = 0; k < 12; ++k) EXPECT_EQ(stampOf(set->images[k], ImageType::Raw).pattern, static_cast<std::uint32_t>(k));
}

TEST_F(DriverOverSim, SingleAndContinuousGrabsInBothTriggerTypes) {
    open();
    for (bool software : {false, true}) {
        SCOPED_TRACE(software ? "software" : "hardware");
        if (software) softwareTrigger();
        const std::uint32_t firstPattern = software ? kNoPattern : 0;

        for (ImageType mode : {ImageType::Gray, ImageType::Color}) {
            camera->setMode(mode);
            const cv::Mat single = camera->grab();
            ASSERT_EQ(single.channels(), mode == ImageType::Color ? 3 : 1);
            EXPECT_EQ(stampOf(single, mode).frame, 0u) << "each grab starts the stream anew";
            EXPECT_EQ(stampOf(single, mode).pattern, firstPattern);
        }

        camera->setMode(ImageType::Raw);
        camera->initGrabContinuous();
        cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
        for (std::uint32_t k = 0; k < 5; ++k) {
            camera->getNextImage(image, 1000);
            const FrameStamp stamp = stampOf(image, ImageType::Raw);
            EXPECT_EQ(stamp.frame, k);
            EXPECT_EQ(stamp.pattern, software ? kNoPattern : k);
        }
        camera->releaseGrabContinuous();
    }
    if (!log->texts(3).empty()) ADD_FAILURE() << "level-3 message: " << log->texts(3).front();
}

// ---- Faults ----

class DriverFaults;

struct Fault {
    const char* what;
    std::function<void(SimSdk&)> arm;
    std::function<void(DriverFaults&, CameraDriver&)> act;
    std::string expected;        // message of the exception
    bool heldUntilRetry = false; // a failed open keeps what it made until the next open
};

class DriverFaults : public DriverOverSim {
public:
    void run(const Fault& fault) {
        SCOPED_TRACE(fault.what);
        fault.arm(*rig);
        const auto started = Clock::now();
        EXPECT_EQ(messageOf([&] { fault.act(*this, *camera); }), fault.expected);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(5)) << "nothing may hang";
        rig->clearOperationFaults();
        for (std::size_t i = 0; i < 2; ++i) {
            rig->clearFrameFaults(i);
            rig->setCondition(i, CameraCondition::Normal);
        }
        if (fault.heldUntilRetry) open();
        camera->releaseCamera();
        EXPECT_EQ(rig->runningThreads(), 0u);
        EXPECT_EQ(rig->openHandles(), 0u);
    }
    using DriverOverSim::open;
    using DriverOverSim::rig;
    using DriverOverSim::softwareTrigger;
};

TEST_F(DriverFaults, EachEndsInTheDriversErrorWithNothingLeaked) {
    using Driver = DriverFaults;
    const auto initialize = [](Driver& d, CameraDriver&) { d.open(); };
    const auto grab = [](Driver& d, CameraDriver& c) {
        d.open();
        c.grab();
    };
    const auto softwareGrab = [](Driver& d, CameraDriver& c) {
        d.open();
        d.softwareTrigger();
        c.grab();
    };
    const Fault faults[] = {
        {"open refused", [](SimSdk& s) { s.failOperation("sdkOpenCamera", 3); }, initialize, "Failed to open camera."},
        {"stream refused", [](SimSdk& s) { s.failOperation("sdkOpenStream", 3); }, initialize,
         "Failed to open camera stream", true},
        {"50th request refused", [](SimSdk& s) { s.failOperation("sdkCreateRequest", 3, FaultWhen::OnCall, 50); },
         initialize, "Failed to create camera stream request #49", true},
        {"count refused", [](SimSdk& s) { s.failOperation("sdkGetCameraCount", 3); }, initialize,
         "Failed to get number of cameras"},
        {"dead camera", [](SimSdk& s) { s.setCondition(0, CameraCondition::Dead); }, initialize,
         "Failed to locate a camera with serial number SIM0001"},
        {"unplugged camera", [](SimSdk& s) { s.setCondition(0, CameraCondition::Unplugged); }, initialize,
         "Failed to locate a camera with serial number SIM0001"},
        {"exposure refused", [](SimSdk& s) { s.failOperation("sdkSetExposureTime", 3); }, initialize,
         "Failed to set camera exposure", true},
        {"start refused", [](SimSdk& s) { s.failOperation("sdkStartStream", 3); }, grab, "Failed to start camera stream."},
        {"stop refused", [](SimSdk& s) { s.failOperation("sdkStopStream", 3); }, grab, "Failed to stop camera stream."},
        {"frame larger than its buffer", [](SimSdk& s) { s.addFrameFault(0, {FrameFault::Kind::Oversize}); }, grab,
         "Failed to grab image from camera."},
        {"every frame dropped", [](SimSdk& s) { s.addFrameFault(0, {FrameFault::Kind::Drop}); }, grab,
         "Failed to wait for camera image completion"},
        {"camera stops answering after the open", [](SimSdk&) {},
         [](Driver& d, CameraDriver& c) {
             d.open();
             d.rig->setCondition(0, CameraCondition::Dead);
             c.grab();
         },
         "Could not get number of camera columns"},
        {"software trigger refused", [](SimSdk& s) { s.failOperation("sdkExecuteSoftwareTrigger", 3); },
         softwareGrab, "Failed to send software trigger signal to camera"},
        {"re-enqueue refused", [](SimSdk& s) { s.failOperation("sdkEnqueueRequest", 3, FaultWhen::OnCall, 121); },
         grab, "Failed to re-enqueue image stream request on camera."},
        {"take fails", [](SimSdk& s) { s.failOperation("sdkTakeCompletedRequest", 3, FaultWhen::OnCall, 2); }, grab,
         "Failed to grab image from camera."},
    };
    for (const auto& fault : faults) run(fault);
}

TEST_F(DriverFaults, ARetryAfterAFailedOpenGivesBackWhatTheFailureHeld) {
    rig->failOperation("sdkCreateRequest", 3, FaultWhen::OnCall, 50);
    EXPECT_EQ(messageOf([&] { open(); }), "Failed to create camera stream request #49");
    EXPECT_GT(rig->openHandles(), 0u) << "the failed open holds camera, stream and 49 requests";
    open();
    EXPECT_EQ(rig->openHandles(), 1u + 1u + 120u);
}

TEST_F(DriverFaults, HungCameraIsFoundThroughTheConnectionReset) {
    rig->setCondition(0, CameraCondition::Hung);
    open();
    bool reset = false;
    for (const auto& text : log->texts(1)) reset = reset || text.find("did not respond") != std::string::npos;
    EXPECT_TRUE(reset);
    EXPECT_EQ(rig->condition(0), CameraCondition::Normal);
    EXPECT_TRUE(camera->isConnected());
}

TEST_F(DriverFaults, SequenceEndsEarlyOnALateOrLostCameraAndFinishStillReturns) {
    struct Case {
        const char* what;
        std::function<void(SimSdk&)> arm;
        int intact;  // images before the failure
        bool connectedAfter;
    };
    FrameFault late{FrameFault::Kind::Late, 4, 1};
    late.delayMs = 800;  // longer than the worker's 500 ms
    const Case cases[] = {
        {"late frame", [late](SimSdk& s) { s.addFrameFault(0, late); }, 4, true},
        {"unplugged mid-stream", [](SimSdk& s) { s.unplugAfterFrames(0, 6); }, 6, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        open();
        log->clear();
        c.arm(*rig);
        const auto started = Clock::now();
        const auto set = sequence(12);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(3));
        ASSERT_EQ(set->images.size(), 12u);
        for (int k = 0; k < c.intact; ++k)
            EXPECT_EQ(stampOf(set->images[k], ImageType::Raw).pattern, static_cast<std::uint32_t>(k));
        const auto failures = log->texts(3);
        EXPECT_NE(std::find(failures.begin(), failures.end(), "An unknown error occured"), failures.end());
        EXPECT_EQ(camera->isConnected(), c.connectedAfter);
        camera->releaseCamera();
        EXPECT_EQ(rig->runningThreads(), 0u);
        EXPECT_EQ(rig->openHandles(), 0u);
        rig->clearFrameFaults(0);
        rig->setCondition(0, CameraCondition::Normal);
    }
}

TEST_F(DriverFaults, DroppedAndBurstFramesInASequence) {
    open();
    FrameFault drop{FrameFault::Kind::Drop, 4, 1};
    rig->addFrameFault(0, drop);
    auto set = sequence(12);
    for (int k = 0; k < 12; ++k)
        EXPECT_EQ(stampOf(set->images[k], ImageType::Raw).pattern, static_cast<std::uint32_t>(k < 4 ? k : k + 1))
            << "the dropped frame takes its pattern with it";

    rig->clearFrameFaults(0);
    FrameFault burst{FrameFault::Kind::Burst, 0};
    burst.burst = 4;  // groups of four completions at once; a group comes well inside 500 ms
    rig->addFrameFault(0, burst);
    set = sequence(12);
    for (int k = 0; k < 12; ++k)
        EXPECT_EQ(stampOf(set->images[k], ImageType::Raw).pattern, static_cast<std::uint32_t>(k)) << k;
    EXPECT_TRUE(log->texts(3).empty());
}

}  // namespace
}  // namespace Tavri::sim::test
