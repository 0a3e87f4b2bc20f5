// Grabbing from GigE cameras through the driver: image by image (whole images, the
// stream's figures, a camera that dies mid-stream), and hardware-triggered sequences
// (one image per pulse, cameras on one trigger line matched image by image, a camera
// losing packets).

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TavriAPI/SetMatch.h"
#include "TavriCommon/Exceptions.h"
#include "sdk/TeliSdk.h"
#include "tests/gige/DriverOverAravis.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace Camera = SettingsOld::Camera;
using gige::patternMismatches;
using gige::stockSerials;

// Each image is software-triggered by the driver: every image that comes carries the
// pattern whole and is not its predecessor again. When acquisition stops, Aravis's
// figures for it are logged: at level 1 when all came, at level 3 when a camera lost
// packets, with the count.
TEST_F(DriverOverAravis, ContinuousGrabDeliversWholeImagesAndLogsTheStreamsFigures) {
    const std::vector<std::tuple<std::string, int, bool>> rows{  // camera, level, lossy
        {gige::fixtureSerial(), 1, false},
        {gige::lossySerial(), 3, true},
    };
    for (const auto& [serial, level, lossy] : rows) {
        SCOPED_TRACE(serial);
        logger->clear();
        ASSERT_NO_FATAL_FAILURE(openShowingPattern(serial, Camera::TriggerTypeValues::Software));
        cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
        camera->initGrabContinuous();
        int previous = -1;
        for (int i = 0; i < 10; ++i) {
            try {
                camera->getNextImage(image, 2000);
            } catch (const RuntimeException&) {
                EXPECT_TRUE(lossy) << "image " << i;  // an incomplete frame fails the grab
                continue;
            }
            EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
            EXPECT_NE(image.data[0], previous) << "image " << i << " repeats its predecessor";
            previous = image.data[0];
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

// A camera killed mid-stream: images already on their way may still arrive; then the
// software trigger the driver sends before each wait goes unanswered. Once Aravis
// reports the camera lost, every call on it fails with 19 without waiting out a
// time-out, so the host's connection check answers false at once.
TEST_F(DriverOverAravis, CameraKilledMidStreamFailsEveryLaterCallAtOnceWithTheDriversErrors) {
    const std::string victim = stockSerials().back();
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(victim, Camera::TriggerTypeValues::Software));
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

    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    camera->getNextImage(image, 2000);
    ASSERT_TRUE(gige::killCamera(victim));
    std::string failure;
    for (int i = 0; i <= 130 && failure.empty(); ++i) {
        try {
            camera->getNextImage(image, 1000);
        } catch (const RuntimeException& e) {
            failure = e.what();
        }
    }
    EXPECT_EQ(failure, "Failed to send software trigger signal to camera");

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
    EXPECT_THROW(camera->releaseGrabContinuous(), RuntimeException);
    EXPECT_EQ(sdk.sdkCloseCamera(second), SdkResult::Success);
}

// Two cameras on one trigger line, each opened by a camera object of its own, as a
// stereo host does: one image per pulse on each, tied to its pulse by the camera's
// frame ids. A frame one camera loses on the link is named by that camera's verdict,
// at the image it shifts, and by the matcher of the two sets, at that camera and image. The faulty row comes last:
// the camera that did not lose a frame may stop before the extra pulse.
TEST_F(DriverOverAravis, HardwareTriggeredSequencesOfCamerasOnOneLineMatchPulseByPulse) {
    constexpr int kImages = 12, kLostAt = 5;
    struct Row {
        const char* what;
        bool lose;  // the frame of pulse kLostAt, on the second camera's link
        std::vector<std::string> mismatches;  // "camera image k: cause"
    };
    const auto cameras = gige::fixtureSerials();
    ASSERT_EQ(cameras.size(), 2u);
    const std::string& faulty = cameras[1];
    const std::vector<Row> rows{
        {"clean line", false, {}},
        {"frame lost on one camera's link at pulse 5", true, {faulty + " image 5: broken set", faulty + " image 5: other trigger"}},
    };
    std::vector<CameraDriver*> drivers{camera.get(), &anotherCamera()};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        for (std::size_t c = 0; c < cameras.size(); ++c) {
            ASSERT_NO_FATAL_FAILURE(openShowingPattern(cameras[c], Camera::TriggerTypeValues::Hardware, drivers[c]));
            drivers[c]->startGrabSequenceAsync(kImages);
        }
        // One script for the line, taken in order by every camera.
        if (row.lose) {
            gige::pulseTriggerLine(kLostAt);
            gige::pulseTriggerLine(1, {faulty});
            gige::pulseTriggerLine(kImages - kLostAt);
        } else {
            gige::pulseTriggerLine(kImages);
        }
        std::vector<Tavri::CameraSet> sets;
        std::vector<SetVerdict> verdicts;
        verdicts.reserve(cameras.size());  // the sets point into it
        for (std::size_t c = 0; c < cameras.size(); ++c) {
            SCOPED_TRACE(cameras[c]);
            const auto set = drivers[c]->finishGrabSequenceAsync();
            ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
            for (int i = 0; i < kImages; ++i) {
                ASSERT_EQ(set->images[i].size(), cv::Size(640, 480)) << "image " << i;
                EXPECT_EQ(patternMismatches(set->images[i].data, 640, 480), 0u) << "image " << i;
            }
            // The emulated line keeps no steady pace (the fake camera takes a pulse on
            // its next round): each set is judged by frame ids alone.
            const auto& records = dynamic_cast<ImageRecordSource&>(*drivers[c]).sequenceRecords();
            for (const auto& r : records.images) EXPECT_NE(r.cameraTimeNs, ImageRecord::kUnknown);
            VerdictOptions byIds;
            byIds.byTime = false;
            verdicts.push_back(judgeSet(records, byIds));
            sets.push_back({cameras[c], &records, &verdicts.back()});
            std::string expected = "whole";
            if (row.lose && cameras[c] == faulty) {
                const auto frame = [&](int i) { return std::to_string(records.images[i].frameNumber); };
                expected = "image 5: pattern 5 missing: camera frame " + frame(4) + " then " + frame(5) +
                           "; images 5-11 answer triggers 6-12";
            }
            EXPECT_EQ(verdicts.back().describe(), expected);
        }
        // As for the verdicts: the line keeps no pace, so capture times cannot tell its
        // pulses apart; frame ids alone match the sets.
        MatchOptions byIdsOnly;
        byIdsOnly.byTime = false;
        const auto match = matchSets(sets, byIdsOnly);
        std::vector<std::string> mismatches;
        for (const auto& problem : match.problems)
            mismatches.push_back(problem.serial + " image " + std::to_string(problem.image) + ": " +
                                 (problem.cause == MatchCause::BrokenSet      ? "broken set"
                                  : problem.cause == MatchCause::OtherTrigger ? "other trigger"
                                                                              : "count differs"));
        EXPECT_EQ(mismatches, row.mismatches) << match.describe();
        for (auto* driver : drivers) driver->releaseCamera();
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

}  // namespace
}  // namespace Tavri
