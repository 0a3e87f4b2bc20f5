// The simulated rig through the TeliSdk interface, without producer threads:
// handles, refused values, the request life cycle (benchmark mode completes at once),
// faults and listing. The rig file and the renderer have their own files.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "RigFixture.h"

namespace Tavri::sim::test {
namespace {

using namespace SimResult;
using Rig = RigTest<false>;

TEST(RigSystem, NothingWorksOutsideInitialisationAndTerminateClosesWhatIsOpen) {
    SimSdk sdk;
    std::uint32_t count = 0;
    EXPECT_EQ(sdk.sdkGetCameraCount(&count), NotInitialized);
    EXPECT_EQ(sdk.sdkInitialize(65535), Success);
    EXPECT_EQ(sdk.sdkInitialize(65535), AlreadyInitialized);
    CameraHandle camera = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(1, &camera, nullptr, true, nullptr, 1), Success);
    CameraInfoRecord record;
    ASSERT_EQ(sdk.sdkGetCameraInfo(camera, 0, &record), Success) << "an open handle wins over the index";
    EXPECT_EQ(record.serialNumber(), "SIM0002");
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 2, &record), IndexOutOfRange);
    EXPECT_EQ(sdk.sdkTerminate(), Success);
    EXPECT_EQ(sdk.openHandles(), 0u);
    EXPECT_EQ(sdk.sdkTerminate(), NotInitialized);
    EXPECT_EQ(sdk.sdkGetCameraCount(&count), NotInitialized);
}

// One call and the code it must answer.
struct Call {
    const char* what;
    std::function<Result()> call;
    Result expected;
};

TEST_F(Rig, BadHandlesAndSecondaryHandlesGetTheirOwnCodes) {
    OpenCamera cam(sdk, 0, 1);
    CameraHandle closedCamera = nullptr, second = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(1, &closedCamera, nullptr, true, nullptr, 1), Success);
    ASSERT_EQ(sdk.sdkCloseCamera(closedCamera), Success);
    ASSERT_EQ(sdk.sdkOpenCamera(0, &second, nullptr, true, nullptr, 1), CameraAlreadyOpen);
    int local = 0;
    std::uint32_t number = 0;
    StreamHandle stream = nullptr;
    const Call calls[] = {
        {"null camera", [&] { return sdk.sdkGetWidth(nullptr, &number); }, InvalidHandle},
        {"unknown camera", [&] { return sdk.sdkSetExposureTime(&local, 100.0); }, InvalidHandle},
        {"closed camera", [&] { return sdk.sdkCloseCamera(closedCamera); }, ClosedHandle},
        {"unknown request", [&] { return sdk.sdkEnqueueRequest(cam.stream, &local); }, InvalidHandle},
        {"stream as camera", [&] { return sdk.sdkGetWidth(cam.stream, &number); }, WrongHandleKind},
        {"camera as stream", [&] { return sdk.sdkStartStream(cam.camera, 8); }, WrongHandleKind},
        {"request as stream", [&] { return sdk.sdkFlushWaitQueue(cam.requests[0]); }, WrongHandleKind},
        {"second handle reads", [&] { return sdk.sdkGetWidth(second, &number); }, Success},
        {"second handle controls", [&] { return sdk.sdkSetExposureTime(second, 100.0); }, AccessDenied},
        {"second handle streams", [&] { return sdk.sdkOpenStream(second, nullptr, &number, &stream, 0); }, AccessDenied},
        {"second stream", [&] { return sdk.sdkOpenStream(cam.camera, nullptr, &number, &stream, 0); }, StreamAlreadyOpen},
        {"second handle closed", [&] { return sdk.sdkCloseCamera(second); }, Success},
        {"first handle still controls", [&] { return sdk.sdkSetExposureTime(cam.camera, 100.0); }, Success},
    };
    for (const auto& c : calls) EXPECT_EQ(c.call(), c.expected) << c.what;

    const auto request = cam.requests[0];
    stream = cam.stream;
    cam.close();
    EXPECT_EQ(sdk.sdkStartStream(stream, 8), ClosedHandle);
    EXPECT_EQ(sdk.sdkEnqueueRequest(stream, request), ClosedHandle);
    EXPECT_EQ(sdk.openHandles(), 0u);
    // Closed objects are freed and their slots used again: a stale handle is still
    // told apart from the new one, by its generation.
    OpenCamera again(sdk, 0, 1);
    EXPECT_NE(again.camera, closedCamera);
    EXPECT_EQ(sdk.sdkCloseCamera(closedCamera), ClosedHandle);
    EXPECT_EQ(sdk.sdkStartStream(stream, 8), ClosedHandle);
    EXPECT_EQ(sdk.sdkGetWidth(again.camera, &number), Success);
    EXPECT_EQ(sdk.openHandles(), 3u);
}

// Rounding onto the increments is checked through the driver's settings round trip;
// here what the camera refuses, which must leave the stored value alone.
TEST_F(Rig, ControlsRefuseWhatTheCameraCannotTakeAndKeepTheStoredValue) {
    OpenCamera cam(sdk, 0, 1);
    EXPECT_EQ(cam.payload, 256u * 64u * 3u) << "room for RGB8, the largest format";
    const auto c = cam.camera;
    const Call calls[] = {
        {"exposure too short", [&] { return sdk.sdkSetExposureTime(c, 5.0); }, ValueOutOfRange},
        {"exposure NaN", [&] { return sdk.sdkSetExposureTime(c, std::nan("")); }, ValueNotFinite},
        {"gain too high", [&] { return sdk.sdkSetGain(c, 30.0); }, ValueOutOfRange},
        {"black level negative", [&] { return sdk.sdkSetBlackLevel(c, -1.0); }, ValueOutOfRange},
        {"red too low", [&] { return sdk.sdkSetBalanceRatio(c, BalanceSelector::Red, 0.1); }, ValueOutOfRange},
        {"balance selector 3", [&] { return sdk.sdkSetBalanceRatio(c, 3, 1.0); }, ValueNotSupported},
        {"width on increment", [&] { return sdk.sdkSetWidth(c, 128); }, Success},
        {"width off increment", [&] { return sdk.sdkSetWidth(c, 130); }, ValueNotOnIncrement},
        {"width above sensor", [&] { return sdk.sdkSetWidth(c, 264); }, ValueOutOfRange},
        {"width below stamp", [&] { return sdk.sdkSetWidth(c, 64); }, ValueOutOfRange},
        {"height", [&] { return sdk.sdkSetHeight(c, 32); }, Success},
        {"Mono16", [&] { return sdk.sdkSetPixelFormat(c, 0x01100007); }, ValueNotSupported},
        {"source 1", [&] { return sdk.sdkSetTriggerSource(c, 1); }, ValueNotSupported},
        {"source line", [&] { return sdk.sdkSetTriggerSource(c, 0); }, Success},
        {"software trigger on line source", [&] { return sdk.sdkExecuteSoftwareTrigger(c); },
         SoftwareTriggerNotSelected},
        {"source software", [&] { return sdk.sdkSetTriggerSource(c, 64); }, Success},
        {"software trigger while stopped", [&] { return sdk.sdkExecuteSoftwareTrigger(c); }, Success},
        {"activation rising", [&] { return sdk.sdkSetTriggerActivation(c, 1); }, Success},
        {"activation 2", [&] { return sdk.sdkSetTriggerActivation(c, 2); }, ValueNotSupported},
        {"sequence 7", [&] { return sdk.sdkSetTriggerSequence(c, 7); }, InvalidTriggerSequence},
    };
    for (const auto& k : calls) EXPECT_EQ(k.call(), k.expected) << k.what;
    double exposure = 0, gain = 0, black = 0, red = 0;
    std::uint32_t width = 0, height = 0, activation = 0;
    ASSERT_EQ(sdk.sdkGetExposureTime(c, &exposure) | sdk.sdkGetGain(c, &gain) | sdk.sdkGetBlackLevel(c, &black) |
                  sdk.sdkGetBalanceRatio(c, BalanceSelector::Red, &red) | sdk.sdkGetWidth(c, &width) |
                  sdk.sdkGetHeight(c, &height) | sdk.sdkGetTriggerActivation(c, &activation),
              Success);
    EXPECT_EQ((std::vector<double>{exposure, gain, black, red, double(width), double(height), double(activation)}),
              (std::vector<double>{10000.0, 0.0, 0.0, 1.0, 128.0, 32.0, 1.0}));
    EXPECT_EQ(sdk.stats(0).ignoredTriggers, 1u) << "a trigger while stopped makes no frame";

    // Geometry and format are locked while acquiring; exposure is not.
    cam.start();
    EXPECT_EQ(sdk.sdkSetWidth(c, 256), LockedWhileAcquiring);
    EXPECT_EQ(sdk.sdkSetPixelFormat(c, PixelFormat::Mono8), LockedWhileAcquiring);
    EXPECT_EQ(sdk.sdkSetExposureTime(c, 500.0), Success);
    cam.stop();
    EXPECT_EQ(sdk.sdkSetWidth(c, 256), Success);

    // A camera that lists only Mono8 needs no room for RGB8.
    RigConfig rig = smallRig(false);
    rig.cameras[0].pixelFormats = {PixelFormat::Mono8};
    SimSdk monoSdk(rig);
    ASSERT_EQ(monoSdk.sdkInitialize(65535), Success);
    OpenCamera mono(monoSdk, 0, 0);
    EXPECT_EQ(mono.payload, 256u * 64u);
    EXPECT_EQ(monoSdk.sdkSetPixelFormat(mono.camera, PixelFormat::RGB8), ValueNotSupported);
}

TEST_F(Rig, RequestLifeCycleFromCreateToRelease) {
    OpenCamera cam(sdk, 0, 4);
    cam.enqueue(3);
    // Flush gives waiting requests back: they can be queued again.
    ASSERT_EQ(sdk.sdkFlushWaitQueue(cam.stream), Success);
    EXPECT_EQ(cam.take().result, NoCompletedRequest);
    cam.enqueue(3);

    // Benchmark mode: the start completes every waiting request at once, oldest first.
    cam.start();
    for (std::uint32_t k = 0; k < 3; ++k) {
        const Taken t = cam.take();
        ASSERT_EQ(t.result, Success);
        EXPECT_EQ(t.request, cam.requests[k]);
        EXPECT_EQ(t.buffer, cam.block.data() + k * cam.payload);
        EXPECT_EQ(t.size, 256u * 64u) << "Mono8 at full size";
        EXPECT_EQ(cam.stamp(t).frame, k);
        EXPECT_EQ(cam.stamp(t).pattern, kNoPattern);
    }
    EXPECT_EQ(cam.take().result, NoCompletedRequest);
    // A taken request is the driver's again: re-queued it completes at once.
    ASSERT_EQ(sdk.sdkEnqueueRequest(cam.stream, cam.requests[1]), Success);
    const Taken t = cam.take();
    EXPECT_EQ(t.request, cam.requests[1]);
    EXPECT_EQ(cam.stamp(t).frame, 3u);

    cam.stop();
    cam.stop();
    for (auto r : cam.requests) EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, r), Success);
    EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, cam.requests[0]), ClosedHandle);
    OpenCamera other(sdk, 1, 1);
    EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, other.requests[0]), RequestOfOtherStream);
}

// The failure itself and the failed-take rule are the contract suite's
// (tests/contract); here the fault that makes it.
TEST_F(Rig, TheOversizeFaultFailsExactlyTheFramesItSelects) {
    // The oversize fault fails exactly the frames it selects, here frame 1 only. While
    // acquiring, the failed request goes back to the wait queue by itself (benchmark
    // mode fills it again at once, as frame 3).
    sdk.addFrameFault(1, FrameFault{FrameFault::Kind::Oversize, 1, 1});
    OpenCamera faulty(sdk, 1, 3);
    faulty.enqueue(3);
    faulty.start();
    for (Result expected : {Success, FrameTooLarge, Success}) EXPECT_EQ(faulty.take().result, expected);
    EXPECT_EQ(sdk.sdkEnqueueRequest(faulty.stream, faulty.requests[1]), RequestBusy) << "it is queued already";
    const Taken refilled = faulty.take();
    ASSERT_EQ(refilled.result, Success);
    EXPECT_EQ(refilled.request, faulty.requests[1]);
    EXPECT_EQ(faulty.stamp(refilled).frame, 3u);
}

TEST_F(Rig, OperationFaultsFireOnceAlwaysOrOnTheKthCall) {
    struct Case {
        FaultWhen when;
        std::uint32_t call;
        std::vector<Result> expected;  // results of five calls
    };
    const Case cases[] = {
        {FaultWhen::Once, 1, {77, 0, 0, 0, 0}},
        {FaultWhen::Always, 1, {77, 77, 77, 77, 77}},
        {FaultWhen::OnCall, 3, {0, 0, 77, 0, 0}},
    };
    for (const auto& c : cases) {
        sdk.failOperation(Operation::sdkGetCameraCount, 77, c.when, c.call);
        for (std::size_t i = 0; i < c.expected.size(); ++i) {
            std::uint32_t count = 99;
            EXPECT_EQ(sdk.sdkGetCameraCount(&count), c.expected[i]) << "call " << i + 1;
            if (c.expected[i] != 0) {
                EXPECT_EQ(count, 99u) << "a failing call has no effect";
            }
        }
        sdk.clearOperationFaults();
    }
    // The fault replaces the whole operation: an open that fails opens nothing.
    sdk.failOperation(Operation::sdkOpenCamera, 1234);
    CameraHandle camera = nullptr;
    EXPECT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), 1234u);
    EXPECT_EQ(sdk.openHandles(), 0u);
}

TEST_F(Rig, HungCamerasAnswerAfterAResetAndDeadOnesStillClose) {
    CameraInfoRecord record;
    CameraHandle camera = nullptr;
    std::uint32_t width = 0;
    // Hung: no answer until an open and close reset the connection.
    sdk.setCondition(0, CameraCondition::Hung);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), NotResponding);
    ASSERT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    EXPECT_EQ(sdk.sdkGetWidth(camera, &width), NotResponding);
    ASSERT_EQ(sdk.sdkCloseCamera(camera), Success);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), Success);

    // Dead: not even the open answers; what was opened before still closes.
    OpenCamera cam(sdk, 1, 2);
    sdk.setCondition(1, CameraCondition::Dead);
    EXPECT_EQ(sdk.sdkOpenCamera(1, &camera, nullptr, true, nullptr, 1), NotResponding);
    EXPECT_EQ(sdk.sdkStartStream(cam.stream, 8), NotResponding);
    cam.close();
    EXPECT_EQ(sdk.openHandles(), 0u);
}

// Listing is linear: the list of plugged-in cameras is made again only when one is
// plugged in or out, and then at once.
TEST(RigListing, FollowsCamerasPluggedInAndOutAcrossARigOfTheMostCameras) {
    RigConfig rig = smallRig(false);
    rig.cameras.resize(kMaxCameras, rig.cameras[0]);
    for (std::size_t i = 0; i < rig.cameras.size(); ++i) rig.cameras[i].serial = "S" + std::to_string(i);
    SimSdk sdk(rig);
    ASSERT_EQ(sdk.sdkInitialize(65535), Success);
    const auto serialAt = [&](std::uint32_t index) {
        CameraInfoRecord record;
        record.clear();
        EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, index, &record), Success) << index;
        return record.serialNumber();
    };
    std::uint32_t count = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    ASSERT_EQ(count, kMaxCameras);
    for (std::uint32_t i = 0; i < count; ++i) ASSERT_EQ(serialAt(i), "S" + std::to_string(i));
    sdk.setCondition(1, CameraCondition::Unplugged);
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, kMaxCameras - 1);
    EXPECT_EQ(serialAt(1), "S2");
    sdk.setCondition(1, CameraCondition::Normal);
    EXPECT_EQ(serialAt(1), "S1");
    sdk.unplugAfterFrames(0, 0);
    EXPECT_EQ(serialAt(0), "S1");
}

TEST_F(Rig, SetRigIsRefusedWhileACameraIsOpen) {
    RigConfig one = smallRig(false);
    one.cameras.resize(1);
    {
        OpenCamera cam(sdk, 0, 0);
        EXPECT_FALSE(sdk.setRig(one));
    }
    EXPECT_TRUE(sdk.setRig(one));
    EXPECT_THROW(sdk.condition(1), std::out_of_range);
}

}  // namespace
}  // namespace Tavri::sim::test
