// The driver over the Aravis backend, against fake GigE cameras: what a host sees of
// a GigE camera, including one without the features a Teli camera has and one that
// dies mid-stream. The driver's own behaviour is tested over a mock SDK; here the
// peer is a real GigE camera.

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"
#include "sdk/TeliSdk.h"
#include "sdk/aravis/AravisSdk.h"
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

// The stock fake camera has no BlackLevel, no BalanceRatio and no FallingEdge, and
// no camera has Line9: the camera still opens, each refusal is logged where the
// driver logs it, and beside it the backend names the feature, the value and what
// the camera offers instead.
TEST_F(DriverOverAravis, CameraWithoutTeliFeaturesOpensAndLogsWhatItRefuses) {
    struct Row {
        std::string serial;
        const char* triggerLine;  // TAVRI_ARAVIS_TRIGGER_LINE, null for the default
        const char* driverLine;
        const char* backendLine;
    };
    const std::vector<Row> rows{
        {stockSerials().front(), nullptr, "Failed to set camera trigger activation",
         "Aravis: set trigger activation failed with 108: TriggerActivation = FallingEdge refused: no such entry; "
         "the camera offers RisingEdge"},
        {fixtureSerial(), "Line9", "Failed to set camera trigger source",
         "Aravis: set trigger source failed with 108: TriggerSource = Line9 refused: no such entry; the camera "
         "offers Line0, Line1, Software"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.serial);
        logger->clear();
        if (row.triggerLine) ::setenv("TAVRI_ARAVIS_TRIGGER_LINE", row.triggerLine, 1);
        const bool opened = camera->initializeCamera(row.serial.c_str());
        ::unsetenv("TAVRI_ARAVIS_TRIGGER_LINE");
        ASSERT_TRUE(opened);
        const auto texts = logger->texts(3);
        const auto driver = std::find(texts.begin(), texts.end(), row.driverLine);
        ASSERT_NE(driver, texts.end());
        ASSERT_NE(driver, texts.begin());
        EXPECT_EQ(*(driver - 1), row.backendLine) << "the backend's cause comes right before the driver's line";
        camera->releaseCamera();
    }

    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    TSettings wanted;
    wanted.addDouble(Camera::BlackLevel, 4.5, "");
    wanted.addDouble(SettingsOld::RedBalance, 1.5, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    EXPECT_TRUE(logged(3, "Failed to set new black level"));
    EXPECT_TRUE(logged(3, "Aravis: set black level failed with 300: the camera has neither BlackLevel nor "
                          "BlackLevelRaw"));
    EXPECT_TRUE(logged(1, "Attempted to set red balance to 1.50. New red balance read from camera: 0.00"));

    const TSettings now = camera->settings();
    EXPECT_DOUBLE_EQ(now[SettingsOld::ExposureTime].toDouble(), 8333.0);  // kept as ExposureTimeAbs
    EXPECT_EQ(now[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
}

// A transport variable with a value it does not allow stops the open, and the log
// says which variable, which value, and what it allows; a good value opens.
TEST_F(DriverOverAravis, TransportVariablesAreCheckedBeforeTheCameraOpens) {
    struct Row {
        const char* variable;
        const char* value;
        const char* allowed;  // null: the value is good
    };
    const std::vector<Row> rows{
        {"TAVRI_ARAVIS_PACKET_SIZE", "abc", "auto, or a whole number of bytes from 576 to 16384"},
        {"TAVRI_ARAVIS_PACKET_SIZE", "100", "auto, or a whole number of bytes from 576 to 16384"},
        {"TAVRI_ARAVIS_PACKET_DELAY", "-5", "camera, or a whole number of nanoseconds from 0 to 100000000"},
        {"TAVRI_ARAVIS_SOCKET_BUFFER", "4M", "auto, or a whole number of bytes from 65536 to 1073741824"},
        {"TAVRI_ARAVIS_PACKET_RESEND", "maybe", "on or off"},
        {"TAVRI_ARAVIS_PACKET_SIZE", "1400", nullptr},
        {"TAVRI_ARAVIS_SOCKET_BUFFER", "1048576", nullptr},
        {"TAVRI_ARAVIS_PACKET_RESEND", "off", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.variable) + "=" + row.value);
        logger->clear();
        ::setenv(row.variable, row.value, 1);
        std::string failure;
        try {
            camera->initializeCamera(fixtureSerial().c_str());
        } catch (const RuntimeException& e) {
            failure = e.what();
        }
        ::unsetenv(row.variable);
        if (row.allowed) {
            EXPECT_EQ(failure, "Failed to open camera.");
            EXPECT_TRUE(logged(3, std::string("Aravis: ") + row.variable + "=" + row.value +
                                      " is not valid; allowed: " + row.allowed));
        } else {
            EXPECT_EQ(failure, "");
            EXPECT_TRUE(camera->isConnected());
        }
        camera->releaseCamera();
    }
}

// The driver counts the cameras up to three times for one open (the host's list, the
// open's count, the serial's index) and asks for them again on every connection
// check; one discovery round serves them all, and a list that has grown old is
// renewed, so a camera that is gone is no longer listed.
TEST_F(DriverOverAravis, OneDiscoveryRoundServesAnOpenAndAnOldListIsRenewed) {
    const auto rounds = [&] {
        const auto texts = logger->texts(1);
        return std::count_if(texts.begin(), texts.end(),
                             [](const std::string& t) { return t.rfind("Aravis: discovery found", 0) == 0; });
    };
    const auto listed = [&](const std::string& serial) {
        const auto cameras = camera->getInfoInternalCameras();
        return std::any_of(cameras.begin(), cameras.end(),
                           [&](const InternalCameraInfo& c) { return c.serialNumber == serial; });
    };
    const std::string leaving = stockSerials()[1];
    const std::vector<std::tuple<const char*, std::function<void()>, long>> steps{
        {"list the cameras", [&] { EXPECT_TRUE(listed(leaving)); }, 1},
        {"open", [&] { ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str())); }, 1},
        {"check the connection", [&] { EXPECT_TRUE(camera->isConnected()); }, 1},
        {"list again once a camera is gone and the list is old",
         [&] {
             ASSERT_TRUE(gige::killCamera(leaving));
             std::this_thread::sleep_for(aravis::AravisSdk::kDeviceListMaxAge + std::chrono::milliseconds(200));
             EXPECT_FALSE(listed(leaving));
         },
         2},
    };
    for (const auto& [step, run, roundsAfter] : steps) {
        ASSERT_NO_FATAL_FAILURE(run()) << step;
        EXPECT_EQ(rounds(), roundsAfter) << step;
    }
}

// When acquisition stops, Aravis's figures for it are logged: at level 1 when all
// came, at level 3 when a camera lost packets, with the count.
TEST_F(DriverOverAravis, StoppingTheStreamLogsItsFiguresLouderWhenPacketsWereLost) {
    const std::vector<std::tuple<std::string, int, bool>> rows{  // camera, level, lossy
        {fixtureSerial(), 1, false},
        {gige::lossySerial(), 3, true},
    };
    for (const auto& [serial, level, lossy] : rows) {
        SCOPED_TRACE(serial);
        logger->clear();
        ASSERT_NO_FATAL_FAILURE(openShowingPattern(serial, Camera::TriggerTypeValues::Software));
        cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
        camera->initGrabContinuous();
        for (int i = 0; i < 8; ++i) {
            try {
                camera->getNextImage(image, 1000);
            } catch (const RuntimeException&) {
                EXPECT_TRUE(lossy) << "image " << i;  // an incomplete frame fails the grab
            }
        }
        camera->releaseGrabContinuous();
        const auto texts = logger->texts(level);
        const auto line = std::find_if(texts.begin(), texts.end(),
                                       [](const std::string& t) { return t.rfind("Aravis stream of", 0) == 0; });
        ASSERT_NE(line, texts.end());
        std::smatch missing;
        ASSERT_TRUE(std::regex_search(*line, missing, std::regex(R"((\d+) missing packets)"))) << *line;
        EXPECT_EQ(std::stoul(missing[1]) > 0, lossy) << *line;
        camera->releaseCamera();
    }
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

// One image per pulse, each tied to its pulse by the camera's frame ids; a frame lost
// on the link is named by the id gap it leaves, at the image it shifts.
TEST_F(DriverOverAravis, HardwareTriggeredSequenceTakesOneImagePerPulseAndNamesALostFrame) {
    constexpr int kImages = 12;
    for (const int lost : {-1, 5}) {
        SCOPED_TRACE("frame lost at pulse " + std::to_string(lost));
        ASSERT_NO_FATAL_FAILURE(openShowingPattern(fixtureSerial(), Camera::TriggerTypeValues::Hardware));
        camera->startGrabSequenceAsync(kImages);
        // The emulated line keeps no steady pace (the fake camera takes a pulse on its
        // next round): the set is judged by frame ids alone.
        if (lost < 0) {
            gige::pulseTriggerLine(kImages);
        } else {
            // In order: the fixture takes a lost pulse once the pulses before it are out.
            for (const auto& [count, gone] : {std::pair{lost, false}, {1, true}, {kImages - lost, false}}) {
                gige::pulseTriggerLine(count, gone);
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
            }
        }
        const auto set = camera->finishGrabSequenceAsync();
        ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
        for (int i = 0; i < kImages; ++i) {
            const cv::Mat& image = set->images[i];
            ASSERT_EQ(image.size(), cv::Size(640, 480)) << "image " << i;
            EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
        }
        auto& records = dynamic_cast<ImageRecordSource&>(*camera);
        const auto& images = records.sequenceRecords().images;
        ASSERT_EQ(images.size(), static_cast<std::size_t>(kImages));
        for (const auto& r : images) {
            EXPECT_NE(r.frameNumber, ImageRecord::kUnknown);
            EXPECT_NE(r.cameraTimeNs, ImageRecord::kUnknown);
        }
        VerdictOptions byIds;
        byIds.byTime = false;
        const SetVerdict verdict = judgeSet(records.sequenceRecords(), byIds);
        if (lost < 0) {
            EXPECT_TRUE(verdict.whole()) << verdict.describe();
        } else {
            ASSERT_EQ(verdict.problems.size(), 1u) << verdict.describe();
            const auto& problem = verdict.problems.front();
            EXPECT_EQ(problem.image, lost);
            EXPECT_EQ(problem.trigger, lost);
            EXPECT_EQ(problem.cause, SetProblemCause::MissingTrigger);
            const auto before = std::to_string(images[lost - 1].frameNumber);
            const auto after = std::to_string(images[lost].frameNumber);
            EXPECT_EQ(problem.detail, "pattern 5 missing: camera frame " + before + " then " + after);
        }
        camera->releaseCamera();
    }
}

// A camera losing packets: every image of a set is whole, or named as failed with
// Aravis's status; none passes unnamed.
TEST_F(DriverOverAravis, LossyCameraNeverPutsAnIncompleteImageIntoASetUnnamed) {
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(gige::lossySerial(), Camera::TriggerTypeValues::Hardware));
    auto& records = dynamic_cast<ImageRecordSource&>(*camera);
    int failed = 0;
    for (int round = 0; round < 6; ++round) {
        camera->startGrabSequenceAsync(8);
        const auto set = camera->finishGrabSequenceAsync();
        const auto& images = records.sequenceRecords().images;
        const auto& verdict = records.sequenceVerdict();
        for (std::size_t i = 0; i < images.size(); ++i) {
            if (images[i].status == 0) {
                EXPECT_EQ(patternMismatches(set->images[i].data, set->images[i].cols, set->images[i].rows), 0u)
                    << "round " << round << " image " << i;
                continue;
            }
            ++failed;
            const auto named = std::find_if(verdict.problems.begin(), verdict.problems.end(), [&](const SetProblem& p) {
                return p.image == static_cast<int>(i) && p.cause == SetProblemCause::FailedFrame;
            });
            ASSERT_NE(named, verdict.problems.end()) << verdict.describe();
            EXPECT_NE(named->detail.find(images[i].statusText), std::string::npos) << named->detail;
        }
    }
    RecordProperty("failed_frames", failed);
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

// Once Aravis reports the camera lost, every call on it fails with 19 without
// waiting out a time-out, so the host's connection check answers false at once.
TEST_F(DriverOverAravis, ControlLostFailsEveryLaterCallAtOnce) {
    const std::string victim = stockSerials()[1];
    ASSERT_TRUE(camera->initializeCamera(victim.c_str()));
    // A second handle on the same connection, to see the backend's own answer.
    TeliSdk& sdk = activeSdk();
    std::uint32_t count = 0, index = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), SdkResult::Success);
    for (; index < count; ++index) {
        CameraInfoRecord record;
        record.clear();
        if (sdk.sdkGetCameraInfo(nullptr, index, &record) == SdkResult::Success && record.serialNumber() == victim)
            break;
    }
    CameraHandle second = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(index, &second, nullptr, true, nullptr, 1), SdkResult::CameraAlreadyOpen);

    ASSERT_TRUE(gige::killCamera(victim));
    const auto lostLine = [&] {
        const auto texts = logger->texts(3);
        return std::any_of(texts.begin(), texts.end(), [&](const std::string& t) {
            return t.rfind("Aravis: camera ", 0) == 0 && t.find(victim) != std::string::npos &&
                   t.find(" lost (") != std::string::npos;
        });
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!lostLine() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(lostLine());

    const std::vector<std::pair<const char*, std::function<bool()>>> calls{
        {"isConnected", [&] { return !camera->isConnected(); }},
        {"sdkGetWidth", [&] {
             std::uint32_t width = 0;
             return sdk.sdkGetWidth(second, &width) == SdkResult::NotResponding;
         }},
        {"sdkSetExposureTime", [&] { return sdk.sdkSetExposureTime(second, 5000.0) == SdkResult::NotResponding; }},
    };
    for (const auto& [what, call] : calls) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(call()) << what;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << what;
    }
    EXPECT_EQ(sdk.sdkCloseCamera(second), SdkResult::Success);
}

}  // namespace
}  // namespace Tavri
