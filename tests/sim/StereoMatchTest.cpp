// Several cameras on one projector, through one camera object each: clean rigs of 2, 3
// and 4 cameras give matched sets, and each per-camera fault, or a free-running
// projector that started before the cameras were armed, is refused at the camera,
// image and cause it lies at.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <tuple>

#include "TavriAPI/SetMatch.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "sdk/sim/SimSdk.h"
#include "tests/support/RecordingLogger.h"

namespace Tavri::sim::test {
namespace {

using Expected = std::tuple<std::string, int, MatchCause>;  // camera, image, cause
using K = FrameFault::Kind;
using M = MatchCause;

constexpr int kImages = 10;
constexpr double kRate = 200.0;

struct StereoCase {
    const char* name;
    std::size_t cameras;
    std::vector<FrameFault> faults;  // of the last camera
    std::vector<Expected> problems;
    std::int64_t unplugAfter = -1;   // of the last camera
    bool freeRunning = false;        // and the last camera armed three periods late
};

FrameFault at(K kind, std::uint32_t first) {
    FrameFault fault;
    fault.kind = kind;
    fault.first = first;
    fault.count = 1;
    return fault;
}

class Camera : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;
};

TEST(StereoOverRig, ImageKOfEveryCameraAnswersOnePulseUnlessOneCameraFails) {
    const auto broken = M::BrokenSet, other = M::OtherTrigger;
    const StereoCase cases[] = {
        {"two clean", 2, {}, {}},
        {"three clean", 3, {}, {}},
        {"four clean", 4, {}, {}},
        {"missed pulse", 2, {at(K::MissedPulse, 4)}, {{"S2", 4, broken}, {"S2", 4, other}}},
        {"missed pulse, four cameras", 4, {at(K::MissedPulse, 6)}, {{"S4", 6, broken}, {"S4", 6, other}}},
        {"extra first frame", 3, {at(K::DoublePulse, 0)}, {{"S3", 1, broken}, {"S3", 1, other}}},
        {"stale first frame", 2, {at(K::Stale, 0)}, {{"S2", 0, broken}, {"S2", 0, other}, {"S2", 1, other}}},
        {"unplugged", 2, {}, {{"S2", 5, broken}, {"S2", 5, M::CountDiffers}}, 5},
        {"free-running projector", 2, {}, {{"S2", 0, other}}, -1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RigConfig rig;
        rig.projector.rate = kRate;
        rig.projector.freeRunning = c.freeRunning;
        for (std::size_t i = 0; i < c.cameras; ++i) {
            CameraConfig config;
            config.serial = "S" + std::to_string(i + 1);
            config.width = kMinWidth;
            config.height = kMinHeight;
            rig.cameras.push_back(config);
            rig.projector.drives.push_back(config.serial);
        }
        rig.cameras.back().frameFaults = c.faults;
        rig.cameras.back().unplugAfterFrames = c.unplugAfter;
        SimSdk sdk(rig);
        testing::ScopedRecordingLogger log;
        sdk.sdkInitialize(65535);
        {
            std::vector<std::unique_ptr<Camera>> cameras;
            for (const auto& config : rig.cameras) {
                cameras.push_back(std::make_unique<Camera>(sdk));
                ASSERT_TRUE(cameras.back()->initializeCamera(config.serial.c_str()));
                cameras.back()->setMode(ImageType::Gray);
            }
            for (auto& camera : cameras) {
                // Later than the projector's first pulses, whatever the machine's load.
                if (c.freeRunning && camera == cameras.back())
                    std::this_thread::sleep_for(std::chrono::duration<double>(3.0 / kRate));
                camera->startGrabSequenceAsync(kImages);
            }
            std::vector<CameraSet> sets;
            for (std::size_t i = 0; i < cameras.size(); ++i) {
                cameras[i]->finishGrabSequenceAsync();
                sets.push_back({rig.cameras[i].serial, &cameras[i]->sequenceRecords(), &cameras[i]->sequenceVerdict()});
            }
            const SetMatch match = matchSets(sets, {1e9 / kRate});
            std::vector<Expected> found;
            for (const auto& p : match.problems) {
                found.emplace_back(p.serial, p.image, p.cause);
                if (p.cause != M::CountDiffers)
                    EXPECT_EQ(p.detail.rfind(p.serial + " image " + std::to_string(p.image) + ": ", 0), 0u) << p.detail;
            }
            EXPECT_EQ(found, c.problems) << match.describe();
            EXPECT_EQ(match.judgedBy, c.faults.empty() || c.faults[0].kind != K::Stale ? "pulse numbers"
                                                                                       : "frame ids and capture times");
            for (auto& camera : cameras) camera->releaseCamera();
        }
        sdk.sdkTerminate();
    }
}

}  // namespace
}  // namespace Tavri::sim::test
