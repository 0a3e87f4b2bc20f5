// Every SDK call of every scenario fails in turn; each failure must end in exactly
// the throw or the log lines the driver promises, never a crash, hang or leak.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <thread>

#include "settings/SettingsOld.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

constexpr Result kFault = 77;

struct Scenario {
    std::string name;
    std::function<void(DriverFixture&)> setup;   // runs before the fault is armed
    std::function<void(DriverFixture&)> action;  // runs with the fault armed
};

struct Outcome {
    std::string thrown;               // empty: nothing thrown
    std::vector<std::string> level3;  // exactly these level-3 lines
};

std::vector<Scenario> scenarios() {
    const auto open = [](DriverFixture& f) { f.open(); };
    const auto openForSoftwareGrabs = [](DriverFixture& f) {
        f.open();
        f.camera->setMode(ImageType::Color);
        f.camera->setCameraTriggerSoftware();
        f.sdk.completeOnSoftwareTrigger = true;
        f.log->clear();
    };
    return {
        {"open", [](DriverFixture&) {}, [](DriverFixture& f) { f.camera->initializeCamera("CAM0"); }},
        {"release", open, [](DriverFixture& f) { f.camera->releaseCamera(); }},
        {"settings", open, [](DriverFixture& f) { f.camera->settings(); }},
        {"update", open,
         [](DriverFixture& f) {
             TSettings tree("");
             tree.addDouble(SettingsOld::ExposureTime, 5000.0, "");
             tree.addDouble(SettingsOld::Camera::Gain, 2.0, "");
             tree.addString(SettingsOld::Camera::ColorMode, "Color", "");
             tree.addDouble(SettingsOld::Camera::BlackLevel, 1.0, "");
             tree.addDouble(SettingsOld::BlueBalance, 1.2, "");
             tree.addDouble(SettingsOld::RedBalance, 1.3, "");
             tree.addString(SettingsOld::Camera::TriggerType, "Software", "");
             tree.addString(SettingsOld::Camera::TriggerPolarity, "RisingEdge", "");
             f.camera->updateSettings(tree);
         }},
        {"grab", openForSoftwareGrabs, [](DriverFixture& f) { f.camera->grab(); }},
        {"continuous", openForSoftwareGrabs,
         [](DriverFixture& f) {
             cv::Mat image(4, 8, CV_8UC3);
             f.camera->initGrabContinuous();
             f.camera->getNextImage(image, 1000);
             f.camera->getNextImage(image, 1000);
             f.camera->releaseGrabContinuous();
         }},
        {"sequence",
         [](DriverFixture& f) {
             f.open();
             f.camera->setMode(ImageType::Color);
             f.log->clear();
         },
         [](DriverFixture& f) {
             f.camera->startGrabSequenceAsync(3);
             std::thread camera([&] {
                 for (int k = 0; k < 3; ++k) f.sdk.complete(1, static_cast<std::uint8_t>(k));
             });
             camera.join();
             f.camera->finishGrabSequenceAsync();
         }},
    };
}

std::map<std::pair<std::string, Operation>, Outcome> expectedOutcomes() {
    std::vector<std::string> releaseRequestLines;
    for (int i = 0; i < 120; ++i)
        releaseRequestLines.push_back("Failed to release ImageRequest #" + std::to_string(i) + " from camera queue");
    const Outcome ignored{};
    const Outcome flushTwice{"", {"Failed to flush camera wait queue", "Failed to flush camera wait queue"}};
    const Outcome streamStart{"Failed to start camera stream.", {}};
    const Outcome streamStop{"Failed to stop camera stream.", {}};
    const Outcome firstEnqueue{"Failed to enqueue camera stream request #0", {}};
    const Outcome rows{"Could not get number of camera rows.", {}};
    const Outcome cols{"Could not get number of camera columns", {}};
    const Outcome trigger{"Failed to send software trigger signal to camera", {}};
    const Outcome take{"Failed to grab image from camera.", {}};
    return {
        {{"open", Operation::sdkGetCameraCount}, {"Failed to get number of cameras", {}}},
        {{"open", Operation::sdkGetCameraInfo}, {"Failed to locate a camera with serial number CAM0", {}}},
        {{"open", Operation::sdkOpenCamera}, {"Failed to open camera.", {}}},
        {{"open", Operation::sdkOpenStream}, {"Failed to open camera stream", {}}},
        {{"open", Operation::sdkSetTriggerMode}, {"", {"Failed to set camera trigger mode"}}},
        {{"open", Operation::sdkSetTriggerSource}, {"", {"Failed to set camera trigger source"}}},
        {{"open", Operation::sdkSetTriggerActivation}, {"", {"Failed to set camera trigger activation"}}},
        {{"open", Operation::sdkSetTriggerSequence}, {"", {"Failed to set camera trigger sequence"}}},
        {{"open", Operation::sdkGetSensorWidth}, {"", {"Failed to get sensor width"}}},
        {{"open", Operation::sdkSetWidth}, {"", {"Failed to set image width"}}},
        {{"open", Operation::sdkGetSensorHeight}, {"", {"Failed to get sensor height"}}},
        {{"open", Operation::sdkSetHeight}, {"", {"Failed to set image height"}}},
        {{"open", Operation::sdkCreateRequest}, {"Failed to create camera stream request #0", {}}},
        {{"open", Operation::sdkSetBalanceRatio}, ignored},
        {{"open", Operation::sdkSetExposureTime}, {"Failed to set camera exposure", {}}},
        {{"open", Operation::sdkSetPixelFormat}, ignored},

        {{"release", Operation::sdkFlushWaitQueue}, {"", {"Failed to flush camera wait queue"}}},
        {{"release", Operation::sdkTakeCompletedRequest}, ignored},
        {{"release", Operation::sdkReleaseRequest}, {"", releaseRequestLines}},
        {{"release", Operation::sdkCloseStream}, {"", {"Failed to close image stream"}}},
        {{"release", Operation::sdkCloseCamera}, {"", {"Failed to close camera"}}},

        {{"settings", Operation::sdkGetExposureTime}, ignored},
        {{"settings", Operation::sdkGetGain}, ignored},
        {{"settings", Operation::sdkGetBlackLevel}, ignored},
        {{"settings", Operation::sdkGetBalanceRatio}, ignored},
        {{"settings", Operation::sdkGetTriggerMode}, ignored},
        {{"settings", Operation::sdkGetTriggerActivation}, ignored},

        {{"update", Operation::sdkSetExposureTime}, {"Failed to set camera exposure", {}}},
        {{"update", Operation::sdkSetGain}, ignored},
        {{"update", Operation::sdkSetBlackLevel}, {"", {"Failed to set new black level"}}},
        {{"update", Operation::sdkGetBlackLevel}, ignored},
        {{"update", Operation::sdkSetBalanceRatio}, ignored},
        {{"update", Operation::sdkGetBalanceRatio}, ignored},
        {{"update", Operation::sdkSetTriggerMode}, {"", {"Failed to set camera trigger mode"}}},
        {{"update", Operation::sdkSetTriggerSource}, {"", {"Failed to set camera trigger source"}}},
        {{"update", Operation::sdkSetTriggerActivation}, ignored},

        {{"grab", Operation::sdkGetWidth}, cols},
        {{"grab", Operation::sdkGetHeight}, rows},
        {{"grab", Operation::sdkFlushWaitQueue}, flushTwice},
        {{"grab", Operation::sdkTakeCompletedRequest}, take},
        {{"grab", Operation::sdkEnqueueRequest}, firstEnqueue},
        {{"grab", Operation::sdkStartStream}, streamStart},
        {{"grab", Operation::sdkExecuteSoftwareTrigger}, trigger},
        {{"grab", Operation::sdkStopStream}, streamStop},

        {{"continuous", Operation::sdkFlushWaitQueue}, flushTwice},
        {{"continuous", Operation::sdkTakeCompletedRequest}, take},
        {{"continuous", Operation::sdkEnqueueRequest}, firstEnqueue},
        {{"continuous", Operation::sdkStartStream}, streamStart},
        {{"continuous", Operation::sdkExecuteSoftwareTrigger}, trigger},
        {{"continuous", Operation::sdkStopStream}, streamStop},

        {{"sequence", Operation::sdkGetHeight}, rows},
        {{"sequence", Operation::sdkGetWidth}, cols},
        {{"sequence", Operation::sdkFlushWaitQueue}, flushTwice},
        {{"sequence", Operation::sdkTakeCompletedRequest},
         {"", {"An unknown error occured", "Grab sequence image 0: failed frame: status 77"}}},
        {{"sequence", Operation::sdkEnqueueRequest}, firstEnqueue},
        {{"sequence", Operation::sdkStartStream}, streamStart},
        {{"sequence", Operation::sdkStopStream}, streamStop},
    };
}

// The operations whose call count `action` raises.
std::set<Operation> operationsCalledBy(const Scenario& scenario) {
    DriverFixture f;
    scenario.setup(f);
    const auto before = f.sdk.callCounts();
    scenario.action(f);
    const auto after = f.sdk.callCounts();
    std::set<Operation> called;
    for (std::size_t i = 0; i < kOperationCount; ++i)
        if (after[i] > before[i]) called.insert(static_cast<Operation>(i));
    return called;
}

TEST(FaultSweepTest, EveryFailingCallEndsInItsPromisedOutcome) {
    const auto expected = expectedOutcomes();
    std::set<std::pair<std::string, Operation>> swept;
    int outcomesChecked = 0;
    for (const Scenario& scenario : scenarios()) {
        for (const Operation operation : operationsCalledBy(scenario)) {
            SCOPED_TRACE(scenario.name + " / " + nameOf(operation));
            const auto found = expected.find({scenario.name, operation});
            ASSERT_NE(found, expected.end()) << "no promised outcome for this call site";
            swept.insert(found->first);

            DriverFixture f;
            scenario.setup(f);
            f.log->clear();
            f.sdk.fail(operation, kFault);
            std::string thrown;
            try {
                scenario.action(f);
            } catch (const std::exception& error) {
                thrown = error.what();
            }
            EXPECT_EQ(thrown, found->second.thrown);
            EXPECT_EQ(f.log->texts(3), found->second.level3);
            outcomesChecked += 2;
        }
    }
    for (const auto& [site, outcome] : expected)
        EXPECT_TRUE(swept.count(site)) << site.first << " / " << nameOf(site.second) << " was never called";
    RecordProperty("call_sites_failed", static_cast<int>(swept.size()));
    RecordProperty("outcomes_checked", outcomesChecked);
    std::cout << "fault sweep: " << swept.size() << " call sites failed, " << outcomesChecked
              << " outcomes checked\n";
}

}  // namespace
}  // namespace Tavri::testing
