// Hardware-triggered sequences from GigE cameras through the driver: one image per
// pulse, several cameras on one trigger line matched image by image, and a camera
// losing packets.

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/gige/DriverOverAravis.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace Camera = SettingsOld::Camera;
using gige::patternMismatches;

struct CameraSet {
    std::string serial;
    const SequenceRecords* records;
};

// How many pulses a camera counted from `from` to `to`, minding frame ids that wrap.
std::uint64_t pulsesBetween(const ImageRecord& from, const ImageRecord& to) {
    return to.frameNumber == from.frameNumber ? 0 : framesBetween(from, to);
}

// Stand-in for the shared set matcher: image k of every camera must answer pulse k.
// Each fixture camera numbers every pulse it takes, lost on the link or not, so an
// image's pulse is its frame id counted from the earliest first frame of all cameras.
// Names the first image of each camera that answers another pulse (the images after
// it are shifted alike) as "camera image k: cause".
std::vector<std::string> matchSets(const std::vector<CameraSet>& sets) {
    const ImageRecord* earliest = nullptr;
    for (const auto& set : sets) {
        if (set.records->images.empty()) continue;
        const auto& first = set.records->images.front();
        if (!earliest || pulsesBetween(first, *earliest) > 0) earliest = &first;
    }
    std::vector<std::string> mismatches;
    for (const auto& set : sets) {
        const auto& images = set.records->images;
        for (std::size_t k = 0; k < images.size(); ++k) {
            const std::uint64_t pulse = pulsesBetween(*earliest, images[k]);
            if (pulse == k) continue;
            const auto cause = pulse > k ? SetProblemCause::MissingTrigger : SetProblemCause::ExtraFrame;
            mismatches.push_back(set.serial + " image " + std::to_string(k) + ": " + causeName(cause) +
                                 " (answers pulse " + std::to_string(pulse) + ")");
            break;
        }
        if (images.size() != static_cast<std::size_t>(set.records->requested))
            mismatches.push_back(set.serial + " image " + std::to_string(images.size()) + ": " +
                                 causeName(SetProblemCause::EndedEarly));
    }
    return mismatches;
}

// Two cameras on one trigger line, each opened by a camera object of its own, as a
// stereo host does: one image per pulse on each, tied to its pulse by the camera's
// frame ids. A frame one camera loses on the link is named by that camera's verdict,
// at the image it shifts, and by the match of the two sets. The faulty row comes last:
// the camera that did not lose a frame may stop before the extra pulse.
TEST_F(DriverOverAravis, HardwareTriggeredSequencesOfCamerasOnOneLineMatchPulseByPulse) {
    constexpr int kImages = 12, kLostAt = 5;
    struct Row {
        const char* what;
        bool lose;  // the frame of pulse kLostAt, on the second camera's link
        std::vector<std::string> mismatches;
    };
    const auto cameras = gige::fixtureSerials();
    ASSERT_EQ(cameras.size(), 2u);
    const std::string& faulty = cameras[1];
    const std::vector<Row> rows{
        {"clean line", false, {}},
        {"frame lost on one camera's link at pulse 5", true, {faulty + " image 5: missing trigger (answers pulse 6)"}},
    };
    std::vector<CameraDriver*> drivers{camera.get(), &anotherCamera()};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        for (std::size_t c = 0; c < cameras.size(); ++c) {
            ASSERT_NO_FATAL_FAILURE(openShowingPattern(*drivers[c], cameras[c], Camera::TriggerTypeValues::Hardware));
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
        std::vector<CameraSet> sets;
        for (std::size_t c = 0; c < cameras.size(); ++c) {
            SCOPED_TRACE(cameras[c]);
            const auto set = drivers[c]->finishGrabSequenceAsync();
            ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
            for (int i = 0; i < kImages; ++i) {
                const cv::Mat& image = set->images[i];
                ASSERT_EQ(image.size(), cv::Size(640, 480)) << "image " << i;
                EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
            }
            // The emulated line keeps no steady pace (the fake camera takes a pulse on
            // its next round): each set is judged by frame ids alone.
            const auto& records = dynamic_cast<ImageRecordSource&>(*drivers[c]).sequenceRecords();
            for (const auto& r : records.images) EXPECT_NE(r.cameraTimeNs, ImageRecord::kUnknown);
            VerdictOptions byIds;
            byIds.byTime = false;
            sets.push_back({cameras[c], &records});
            std::string expected = "whole";
            if (row.lose && cameras[c] == faulty) {
                const auto frame = [&](int i) { return std::to_string(records.images[i].frameNumber); };
                expected = "image 5: pattern 5 missing: camera frame " + frame(4) + " then " + frame(5) +
                           "; images 5-11 answer triggers 6-12";
            }
            EXPECT_EQ(judgeSet(records, byIds).describe(), expected);
        }
        EXPECT_EQ(matchSets(sets), row.mismatches);
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
