// The whole driver over the simulated rig, through the plug-in's entry points:
// discovery and open by serial, settings round trip, hardware-triggered sequences
// whose image k shows pattern k, single and continuous grabs in both trigger types,
// and faults that end in the driver's specified error with nothing hung or leaked.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Exceptions.h"
#include "sdk/sim/SimSdk.h"
#include "settings/SettingsOld.h"
#include "tests/support/RecordingLogger.h"
#include "tests/support/ThrownMessage.h"

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

FrameStamp stampOf(const cv::Mat& image, ImageType mode = ImageType::Raw) {
    FrameStamp stamp;
    EXPECT_TRUE(readStamp(image.data, static_cast<std::uint32_t>(image.cols), static_cast<std::uint32_t>(image.rows),
                          formatOf(mode), &stamp));
    return stamp;
}

// Every test ends with the camera released and nothing left running or open in the rig.
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
        releaseAndCheck();
        camera.reset();
        releaseDriver();
    }
    void releaseAndCheck() {
        camera->releaseCamera();
        EXPECT_EQ(rig->runningThreads(), 0u) << "a producer thread was left running";
        EXPECT_EQ(rig->openHandles(), 0u) << "the driver left SDK handles open";
    }
    void heal() {
        rig->clearOperationFaults();
        for (std::size_t i = 0; i < 2; ++i) {
            rig->clearFrameFaults(i);
            rig->setCondition(i, CameraCondition::Normal);
        }
    }
    void open(const char* serial = "SIM0001") { ASSERT_TRUE(camera->initializeCamera(serial)); }
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
    // The second camera object may not open the camera the first one holds.
    std::unique_ptr<CameraDriver> other(createCamera());
    EXPECT_EQ(testing::runtimeError([&] { other->initializeCamera("SIM0002"); }), "Failed to open camera.");
    other->releaseCamera();
    EXPECT_EQ(testing::runtimeError([&] { other->initializeCamera("SIM0003"); }),
              "Failed to locate a camera with serial number SIM0003");
}

// The driver reports what the camera stored, not what was asked for.
TEST_F(DriverOverSim, SettingsRoundTripAsTheCameraStoresThem) {
    open();
    TSettings t("");
    t.addDouble(SettingsOld::ExposureTime, 5000.4, "");
    t.addDouble(Camera::Gain, 6.04, "");
    t.addDouble(Camera::BlackLevel, 3.3, "");
    t.addDouble(SettingsOld::RedBalance, 1.9, "");
    t.addDouble(SettingsOld::BlueBalance, 1.5, "");
    t.addString(Camera::ColorMode, Camera::ColorModeValues::Gray, "");
    t.addString(Camera::TriggerType, Camera::TriggerTypeValues::Software, "");
    t.addString(Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge, "");
    ASSERT_TRUE(camera->updateSettings(t));
    const TSettings read = camera->settings();
    EXPECT_EQ(read[SettingsOld::ExposureTime].toDouble(), 5000.0);
    EXPECT_NEAR(read[Camera::Gain].toDouble(), 6.0, 1e-9);
    EXPECT_EQ(read[Camera::BlackLevel].toDouble(), 3.25);
    EXPECT_EQ(read[SettingsOld::RedBalance].toDouble(), 122.0 / 64.0);
    EXPECT_EQ(read[SettingsOld::BlueBalance].toDouble(), 1.5);
    EXPECT_EQ(read[Camera::ColorMode].toString(), Camera::ColorModeValues::Gray);
    EXPECT_EQ(read[Camera::TriggerType].toString(), Camera::TriggerTypeValues::Software);
    EXPECT_EQ(read[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
}

TEST_F(DriverOverSim, HardwareTriggeredSequencesShowPatternKInImageK) {
    open();
    for (ImageType mode : {ImageType::Raw, ImageType::Color}) {
        camera->setMode(mode);
        // What the driver's starting configuration makes the camera deliver (blue 1.281 is
        // stored on the 1/64 grid).
        const FrameSettings opened{formatOf(mode), kWidth, kHeight, 8333.0, 0.0, 0.0, 1.875, 82.0 / 64.0};
        for (int n : {1, 12, 120}) {
            SCOPED_TRACE("mode " + std::to_string(static_cast<int>(mode)) + ", n = " + std::to_string(n));
            const auto set = sequence(n);
            ASSERT_EQ(set->images.size(), static_cast<std::size_t>(n));
            for (int k = 0; k < n; ++k) {
                ASSERT_EQ(set->images[k].channels(), mode == ImageType::Color ? 3 : 1);
                EXPECT_EQ(stampOf(set->images[k], mode).pattern, static_cast<std::uint32_t>(k)) << "image " << k;
            }
            // The first images are exactly what the rig renders for their patterns.
            for (int k = 0; k < std::min(n, 3); ++k) {
                const auto expected = renderFrame(rig->rig(), 0, opened, k, k);
                ASSERT_EQ(expected.size(), static_cast<std::size_t>(set->bytesPerImage));
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), set->images[k].data)) << "image " << k;
            }
        }
    }
    EXPECT_EQ(log->texts(3), std::vector<std::string>{}) << "no failure may be logged";
}

TEST_F(DriverOverSim, SingleAndContinuousGrabsInBothTriggerTypes) {
    open();
    for (bool software : {false, true}) {
        SCOPED_TRACE(software ? "software" : "hardware");
        TSettings trigger("");
        trigger.addString(Camera::TriggerType, software ? Camera::TriggerTypeValues::Software
                                                        : Camera::TriggerTypeValues::Hardware, "");
        ASSERT_TRUE(camera->updateSettings(trigger));
        for (ImageType mode : {ImageType::Gray, ImageType::Color}) {
            camera->setMode(mode);
            const cv::Mat single = camera->grab();
            ASSERT_EQ(single.channels(), mode == ImageType::Color ? 3 : 1);
            EXPECT_EQ(stampOf(single, mode).frame, 0u) << "each grab starts the stream anew";
            EXPECT_EQ(stampOf(single, mode).pattern, software ? kNoPattern : 0u);
        }
        camera->setMode(ImageType::Raw);
        camera->initGrabContinuous();
        cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
        for (std::uint32_t k = 0; k < 5; ++k) {
            camera->getNextImage(image, 1000);
            EXPECT_EQ(stampOf(image).frame, k);
            EXPECT_EQ(stampOf(image).pattern, software ? kNoPattern : k);
        }
        camera->releaseGrabContinuous();
    }
    EXPECT_EQ(log->texts(3), std::vector<std::string>{}) << "no failure may be logged";
}

// ---- Faults. A plain failure of each SDK call is swept over the mock camera; here the
// faults only a camera has: conditions, frame faults, and failures on a later call.

TEST_F(DriverOverSim, EachFaultEndsInTheDriversErrorWithNothingHungOrLeaked) {
    struct Fault {
        const char* what;
        std::function<void()> arm;
        std::function<void()> act;
        std::string expected;        // message of the exception
        bool heldUntilRetry = false; // a failed open or close keeps the camera until deletion
    };
    const auto initialize = [this] { open(); };
    const auto grab = [this] {
        open();
        camera->grab();
    };
    const auto openAndRelease = [this] {
        open();
        camera->releaseCamera();
    };
    const Fault faults[] = {
        // A camera whose close failed is given back at the object's next open, or at its
        // deletion; until then no other object could open it.
        {"close does not respond", [this] { rig->failOperation(Operation::sdkCloseCamera, SdkResult::NotResponding); },
         openAndRelease, "<no RuntimeException>"},
        {"close fails in the backend", [this] { rig->failOperation(Operation::sdkCloseCamera, SimResult::CameraUnplugged); },
         openAndRelease, "<no RuntimeException>", true},
        {"50th request refused", [this] { rig->failOperation(Operation::sdkCreateRequest, 3, FaultWhen::OnCall, 50); },
         initialize, "Failed to create camera stream request #49", true},
        {"dead camera", [this] { rig->setCondition(0, CameraCondition::Dead); }, initialize,
         "Failed to locate a camera with serial number SIM0001"},
        {"unplugged camera", [this] { rig->setCondition(0, CameraCondition::Unplugged); }, initialize,
         "Failed to locate a camera with serial number SIM0001"},
        {"frame larger than its buffer", [this] { rig->addFrameFault(0, {FrameFault::Kind::Oversize}); }, grab,
         "Failed to grab image from camera."},
        {"every frame dropped", [this] { rig->addFrameFault(0, {FrameFault::Kind::Drop}); }, grab,
         "Failed to wait for camera image completion"},
        {"camera stops answering after the open", [] {},
         [this] {
             open();
             rig->setCondition(0, CameraCondition::Dead);
             camera->grab();
         },
         "Could not get number of camera columns"},
        {"re-enqueue refused", [this] { rig->failOperation(Operation::sdkEnqueueRequest, 3, FaultWhen::OnCall, 121); }, grab,
         "Failed to re-enqueue image stream request on camera."},
        {"enqueue refused during a start",
         [this] { rig->failOperation(Operation::sdkEnqueueRequest, 3, FaultWhen::OnCall, 6); }, grab,
         "Failed to enqueue camera stream request #5"},
        {"take fails after the wait",
         [this] { rig->failOperation(Operation::sdkTakeCompletedRequest, 3, FaultWhen::OnCall, 2); }, grab,
         "Failed to grab image from camera."},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.what);
        fault.arm();
        const auto started = Clock::now();
        EXPECT_EQ(testing::runtimeError(fault.act), fault.expected);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(30)) << "nothing may hang";
        heal();
        if (fault.heldUntilRetry) {
            EXPECT_GT(rig->openHandles(), 0u) << "the failed open holds what it made";
            camera.reset(createCamera());
            EXPECT_EQ(rig->openHandles(), 0u) << "deleting the failed object gave the camera back";
        }
        // Whatever failed, the healed camera opens and grabs again.
        open();
        EXPECT_EQ(testing::runtimeError([this] { camera->grab(); }), "<no RuntimeException>");
        releaseAndCheck();
    }
}

// The failed-take rule: each failed frame's request goes back to the wait queue by
// itself, so more failures than the pool has requests never starve the stream.
TEST_F(DriverOverSim, ContinuousGrabbingOutlivesMoreFailedFramesThanThePoolHolds) {
    open();
    constexpr int kFailed = 130;  // > the driver's 120 requests
    rig->addFrameFault(0, FrameFault{FrameFault::Kind::Oversize, 0, kFailed});
    camera->setMode(ImageType::Raw);
    camera->initGrabContinuous();
    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    int failed = 0, delivered = 0;
    const auto started = Clock::now();
    while (delivered < 5 && Clock::now() - started < std::chrono::seconds(20)) {
        const std::string message = testing::runtimeError([&] { camera->getNextImage(image, 1000); });
        if (message == "<no RuntimeException>") {
            EXPECT_GE(stampOf(image).frame, static_cast<std::uint32_t>(kFailed));
            ++delivered;
        } else {
            ASSERT_EQ(message, "Failed to grab image from camera.") << "after " << failed << " failed frames";
            ++failed;
        }
    }
    camera->releaseGrabContinuous();
    EXPECT_EQ(failed, kFailed);
    EXPECT_EQ(delivered, 5) << "the stream starved";
    EXPECT_EQ(rig->stats(0).lost, 0u) << "a frame found no waiting request";
}

TEST_F(DriverOverSim, HungCameraIsFoundThroughTheConnectionReset) {
    rig->setCondition(0, CameraCondition::Hung);
    open();
    const auto notes = log->texts(1);
    EXPECT_TRUE(std::any_of(notes.begin(), notes.end(),
                            [](const std::string& text) { return text.find("did not respond") != std::string::npos; }));
    EXPECT_EQ(rig->condition(0), CameraCondition::Normal);
    EXPECT_TRUE(camera->isConnected());
}

TEST_F(DriverOverSim, SequencesUnderFrameFaultsAndEndingEarlyOnALateOrLostCamera) {
    struct Case {
        const char* what;
        FrameFault fault;
        std::int64_t unplugAfter;          // -1: stays plugged in
        std::vector<std::uint32_t> patterns; // of the first images, which must be intact
        bool failureLogged;
    };
    FrameFault late{FrameFault::Kind::Late, 4, 1};
    late.delayMs = 800;  // longer than the worker's 500 ms
    FrameFault burst{FrameFault::Kind::Burst, 0};
    burst.burst = 4;  // groups of four completions at once, well inside 500 ms
    FrameFault none{FrameFault::Kind::Drop, 0, 0};
    const Case cases[] = {
        {"dropped frame takes its pattern with it", FrameFault{FrameFault::Kind::Drop, 4, 1}, -1,
         {0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12}, false},
        {"bursts", burst, -1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, false},
        {"late frame", late, -1, {0, 1, 2, 3}, true},
        {"unplugged mid-stream", none, 6, {0, 1, 2, 3, 4, 5}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        open();
        log->clear();
        rig->addFrameFault(0, c.fault);
        if (c.unplugAfter >= 0) rig->unplugAfterFrames(0, static_cast<std::uint32_t>(c.unplugAfter));
        const auto started = Clock::now();
        const auto set = sequence(12);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(30)) << "finish must return";
        ASSERT_EQ(set->images.size(), 12u);
        for (std::size_t k = 0; k < c.patterns.size(); ++k) EXPECT_EQ(stampOf(set->images[k]).pattern, c.patterns[k]);
        const auto failures = log->texts(3);
        EXPECT_EQ(std::count(failures.begin(), failures.end(), "An unknown error occured") > 0, c.failureLogged);
        EXPECT_EQ(camera->isConnected(), c.unplugAfter < 0);
        heal();
        releaseAndCheck();
    }
}

}  // namespace
}  // namespace Tavri::sim::test
