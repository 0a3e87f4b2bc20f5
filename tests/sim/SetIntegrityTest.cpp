// Sets judged over the rig: each fault that breaks a set in the field, at the first, a
// middle and the last image and in pairs, yields exactly its problems; faults of
// delivery alone (late, burst) and a clean rig yield none. Every image is also checked
// against the rig's ground truth: the trigger the verdict gives it is the pulse it saw.

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

using Cause = SetProblemCause;
using Expected = std::tuple<int, int, Cause>;  // image, trigger, cause
using K = FrameFault::Kind;

constexpr int kImages = 12;
constexpr double kRate = 200.0;

struct IntegrityCase {
    const char* name;
    std::vector<FrameFault> faults;
    std::vector<Expected> problems;
    FrameIds ids = FrameIds::Continue;
    std::int64_t unplugAfter = -1;
    bool monoOnly = false;  // a camera without RGB8, asked for colour
};

// Every image of the set failed, each at its own trigger.
std::vector<Expected> allFailed() {
    std::vector<Expected> problems;
    for (int i = 0; i < kImages; ++i) problems.emplace_back(i, i, SetProblemCause::FailedFrame);
    return problems;
}

FrameFault at(K kind, std::uint32_t first, std::uint32_t count = 1) {
    FrameFault fault;
    fault.kind = kind;
    fault.first = first;
    fault.count = count;
    fault.delayMs = 60;
    fault.burst = 3;
    return fault;
}

class Camera : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;
};

TEST(SetIntegrityOverRig, EachFaultIsNamedAtItsImageAndCleanSetsAreWhole) {
    const auto missing = Cause::MissingTrigger, extra = Cause::ExtraFrame, stale = Cause::StaleFrame;
    const IntegrityCase cases[] = {
        {"clean", {}, {}},
        {"drop first", {at(K::Drop, 0)}, {{0, 0, missing}}},
        {"drop middle", {at(K::Drop, 5)}, {{5, 5, missing}}},
        {"drop last", {at(K::Drop, 11)}, {{11, 11, missing}}},
        {"two drops in a row", {at(K::Drop, 4, 2)}, {{4, 4, missing}, {4, 5, missing}}},
        {"missed pulse first", {at(K::MissedPulse, 0)}, {{0, 0, missing}}},
        {"missed pulse middle", {at(K::MissedPulse, 6)}, {{6, 6, missing}}},
        {"missed pulse last", {at(K::MissedPulse, 11)}, {{11, 11, missing}}},
        {"double pulse first", {at(K::DoublePulse, 0)}, {{1, 1, extra}}},
        {"double pulse middle", {at(K::DoublePulse, 5)}, {{6, 6, extra}}},
        {"double pulse before the last", {at(K::DoublePulse, 10)}, {{11, 11, extra}}},
        {"double pulse after the set", {at(K::DoublePulse, 11)}, {}},
        {"stale frame at the start", {at(K::Stale, 0)}, {{0, 0, stale}}},
        {"drop and double pulse", {at(K::Drop, 3), at(K::DoublePulse, 7)}, {{3, 3, missing}, {7, 8, extra}}},
        {"stale and missed pulse", {at(K::Stale, 0), at(K::MissedPulse, 4)}, {{0, 0, stale}, {5, 4, missing}}},
        {"oversize frame", {at(K::Oversize, 5)}, {{5, 5, Cause::FailedFrame}}},
        {"late and burst delivery", {at(K::Late, 2), at(K::Burst, 6, 3)}, {}},
        {"16-bit ids wrapping", {}, {}, FrameIds::Wrap16},
        {"drop across the wrap", {at(K::Drop, 6)}, {{6, 6, missing}}, FrameIds::Wrap16},
        {"ids restarting", {at(K::Drop, 5)}, {{5, 5, missing}}, FrameIds::Restart},
        {"camera gone", {}, {{6, 6, Cause::EndedEarly}}, FrameIds::Continue, 6},
        {"colour mode not taken", {}, allFailed(), FrameIds::Continue, -1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RigConfig rig;
        rig.projector.rate = kRate;
        CameraConfig config;
        config.serial = "R1";
        config.width = kMinWidth;
        config.height = kMinHeight;
        config.frameFaults = c.faults;
        config.frameIds = c.ids;
        config.unplugAfterFrames = c.unplugAfter;
        if (c.monoOnly) config.pixelFormats = {PixelFormat::Mono8};
        rig.cameras = {config};
        SimSdk sdk(rig);
        testing::ScopedRecordingLogger log;
        sdk.sdkInitialize(65535);
        {
            Camera camera(sdk);
            ASSERT_TRUE(camera.initializeCamera("R1"));
            camera.setMode(c.monoOnly ? ImageType::Color : ImageType::Gray);
            camera.startGrabSequenceAsync(kImages);
            camera.finishGrabSequenceAsync();

            const auto& records = camera.sequenceRecords();
            const double period = 1e9 / kRate;
            const SetVerdict verdict = judgeSet(records, {0.0, period});
            std::vector<Expected> found;
            for (const auto& p : verdict.problems) found.emplace_back(p.image, p.trigger, p.cause);
            EXPECT_EQ(found, c.problems) << verdict.describe();
            for (std::size_t i = 0; i < records.images.size(); ++i) {
                const auto& r = records.images[i];
                if (r.status == 0 && r.captureSteadyNs >= records.startSteadyNs) {
                    EXPECT_EQ(verdict.triggers[i], static_cast<std::int32_t>(r.pulse)) << "image " << i;
                }
            }
            // The driver judges without knowing where the first trigger lies: it sees
            // the same problems but for one missed before the first image.
            const auto& own = camera.sequenceVerdict();
            const bool firstMissed = !c.problems.empty() && std::get<0>(c.problems[0]) == 0 &&
                                     std::get<2>(c.problems[0]) == missing;
            EXPECT_EQ(own.problems.size(), c.problems.size() - (firstMissed ? 1 : 0)) << own.describe();
            std::size_t told = 0;
            std::size_t sizesTold = 0;
            for (const auto& text : log->texts(3)) {
                told += text.rfind("Grab sequence image ", 0) == 0;
                sizesTold += text.rfind("Completed image has 2048 bytes where the colour mode needs 6144", 0) == 0;
            }
            EXPECT_EQ(told, own.problems.size());
            EXPECT_EQ(sizesTold, c.monoOnly ? 1u : 0u) << "once per sequence";
            camera.releaseCamera();
        }
        sdk.sdkTerminate();
    }
}


// Several cameras on one projector, through one camera object each: clean rigs of 2, 3
// and 4 cameras give matched sets, and each per-camera fault, or a free-running
// projector that started before the cameras were armed, is refused at the camera,
// image and cause it lies at.
using Matched = std::tuple<std::string, int, MatchCause>;  // camera, image, cause
using M = MatchCause;

struct StereoCase {
    const char* name;
    std::size_t cameras;
    std::vector<FrameFault> faults;  // of the last camera
    std::vector<Matched> problems;
    std::int64_t unplugAfter = -1;   // of the last camera
    bool freeRunning = false;        // and the last camera armed three periods late
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
            std::vector<Matched> found;
            for (const auto& p : match.problems) {
                found.emplace_back(p.serial, p.image, p.cause);
                if (p.cause != M::CountDiffers) {
                    EXPECT_EQ(p.detail.rfind(p.serial + " image " + std::to_string(p.image) + ": ", 0), 0u) << p.detail;
                }
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
