// The simulated rig through the TeliSdk interface, without producer threads:
// enumeration, handles, stored values, the request life cycle (benchmark mode
// completes at once), faults, the rig file and the renderer.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "TavriCommon/Exceptions.h"
#include "RigFixture.h"
#include "sdk/sim/SimRender.h"

namespace Tavri::sim::test {
namespace {

using namespace SimResult;

class Rig : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sdk.sdkInitialize(65535), 0u); }
    SimSdk sdk{smallRig(false)};
};

TEST(RigSystem, InitialiseTwiceAnswers2AndNothingWorksOutsideInitialisation) {
    SimSdk sdk;
    std::uint32_t count = 0;
    EXPECT_EQ(sdk.sdkGetCameraCount(&count), NotInitialized);
    EXPECT_EQ(sdk.sdkInitialize(65535), Success);
    EXPECT_EQ(sdk.sdkInitialize(65535), AlreadyInitialized);
    EXPECT_EQ(sdk.sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, 2u);
    CameraHandle camera = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    EXPECT_EQ(sdk.sdkTerminate(), Success);
    EXPECT_EQ(sdk.openHandles(), 0u) << "terminate closes what is open";
    EXPECT_EQ(sdk.sdkTerminate(), NotInitialized);
    EXPECT_EQ(sdk.sdkGetCameraCount(&count), NotInitialized);
}

TEST_F(Rig, EnumeratesTwoCamerasWithDistinctSerialsInTheirRecords) {
    std::uint32_t count = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    ASSERT_EQ(count, 2u);
    CameraInfoRecord records[2];
    for (std::uint32_t i = 0; i < 2; ++i) {
        std::memset(records[i].bytes, 0xAB, CameraInfoRecord::Size);
        ASSERT_EQ(sdk.sdkGetCameraInfo(nullptr, i, &records[i]), Success);
        EXPECT_EQ(records[i].firstText(), "Toshiba Teli (simulated)");
        EXPECT_EQ(records[i].secondText(), "BU205MCF");
    }
    EXPECT_EQ(records[0].serialNumber(), "SIM0001");
    EXPECT_EQ(records[1].serialNumber(), "SIM0002");
    CameraInfoRecord record;
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 2, &record), IndexOutOfRange);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, nullptr), NullArgument);

    // Through an open camera's handle, whatever the index says.
    OpenCamera cam(sdk, 1, 0);
    ASSERT_EQ(sdk.sdkGetCameraInfo(cam.camera, 0, &record), Success);
    EXPECT_EQ(record.serialNumber(), "SIM0002");
}

TEST_F(Rig, EveryKindOfBadHandleGetsItsOwnCodeAndNothingBreaks) {
    OpenCamera cam(sdk, 0, 1);
    CameraHandle closedCamera = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(1, &closedCamera, nullptr, true, nullptr, 1), Success);
    ASSERT_EQ(sdk.sdkCloseCamera(closedCamera), Success);
    int local = 0;
    void* const unknown = &local;

    struct Case {
        const char* what;
        void* handle;
        Result expected;
    };
    const Case cases[] = {
        {"null", nullptr, NullHandle},
        {"unknown", unknown, UnknownHandle},
        {"closed camera", closedCamera, ClosedHandle},
    };
    double value = 0;
    std::uint32_t number = 0;
    bool flag = false;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(sdk.sdkCloseCamera(c.handle), c.expected);
        EXPECT_EQ(sdk.sdkGetWidth(c.handle, &number), c.expected);
        EXPECT_EQ(sdk.sdkSetExposureTime(c.handle, 100.0), c.expected);
        EXPECT_EQ(sdk.sdkGetBalanceRatio(c.handle, 1, &value), c.expected);
        EXPECT_EQ(sdk.sdkGetTriggerMode(c.handle, &flag), c.expected);
        EXPECT_EQ(sdk.sdkExecuteSoftwareTrigger(c.handle), c.expected);
        if (c.handle != closedCamera) {
            EXPECT_EQ(sdk.sdkStartStream(c.handle, 8), c.expected);
            EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, c.handle), c.expected);
            EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, c.handle), c.expected);
        }
    }
    // Handles of the wrong kind.
    EXPECT_EQ(sdk.sdkGetWidth(cam.stream, &number), WrongHandleKind);
    EXPECT_EQ(sdk.sdkStartStream(cam.camera, 8), WrongHandleKind);
    EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, cam.stream), WrongHandleKind);
    EXPECT_EQ(sdk.sdkFlushWaitQueue(cam.requests[0]), WrongHandleKind);

    // Stale stream and request handles after a close.
    const auto stream = cam.stream;
    const auto request = cam.requests[0];
    cam.close();
    EXPECT_EQ(sdk.sdkStartStream(stream, 8), ClosedHandle);
    EXPECT_EQ(sdk.sdkCloseStream(stream), ClosedHandle);
    Taken t;
    EXPECT_EQ(sdk.sdkTakeCompletedRequest(stream, &t.request, &t.buffer, &t.size), ClosedHandle);
    EXPECT_EQ(sdk.sdkEnqueueRequest(stream, request), ClosedHandle);
    EXPECT_EQ(sdk.openHandles(), 0u);
}

TEST_F(Rig, SecondOpenAnswers4WithAReadOnlyHandle) {
    OpenCamera cam(sdk, 0, 0);
    CameraHandle second = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(0, &second, nullptr, true, nullptr, 1), CameraAlreadyOpen);
    ASSERT_NE(second, nullptr);
    std::uint32_t width = 0, payload = 0;
    EXPECT_EQ(sdk.sdkGetWidth(second, &width), Success);
    EXPECT_EQ(sdk.sdkSetExposureTime(second, 100.0), AccessDenied);
    StreamHandle stream = nullptr;
    EXPECT_EQ(sdk.sdkOpenStream(second, nullptr, &payload, &stream, 0), AccessDenied);
    EXPECT_EQ(sdk.sdkOpenStream(cam.camera, nullptr, &payload, &stream, 0), StreamAlreadyOpen);
    EXPECT_EQ(sdk.sdkCloseCamera(second), Success);
    EXPECT_EQ(sdk.sdkGetWidth(cam.camera, &width), Success) << "closing the second handle leaves the first";
}

TEST_F(Rig, FeaturesAreStoredOnTheirIncrementsAndRefusedOutsideTheirRange) {
    OpenCamera cam(sdk, 0, 0);
    using Set = Result (SimSdk::*)(CameraHandle, double);
    using Get = Result (SimSdk::*)(CameraHandle, double*);
    struct Case {
        const char* what;
        Set set;
        Get get;
        double requested;
        Result expected;
        double stored;  // read back after the call
    };
    const double nan = std::nan("");
    const Case cases[] = {
        {"exposure on the grid", &SimSdk::sdkSetExposureTime, &SimSdk::sdkGetExposureTime, 8333.0, Success, 8333.0},
        {"exposure rounded", &SimSdk::sdkSetExposureTime, &SimSdk::sdkGetExposureTime, 8333.4, Success, 8333.0},
        {"exposure too short", &SimSdk::sdkSetExposureTime, &SimSdk::sdkGetExposureTime, 5.0, ValueOutOfRange, 8333.0},
        {"exposure too long", &SimSdk::sdkSetExposureTime, &SimSdk::sdkGetExposureTime, 2e6, ValueOutOfRange, 8333.0},
        {"exposure NaN", &SimSdk::sdkSetExposureTime, &SimSdk::sdkGetExposureTime, nan, ValueNotFinite, 8333.0},
        {"gain rounded to 0.1", &SimSdk::sdkSetGain, &SimSdk::sdkGetGain, 6.04, Success, 6.0},
        {"gain too high", &SimSdk::sdkSetGain, &SimSdk::sdkGetGain, 30.0, ValueOutOfRange, 6.0},
        {"black level on 0.25", &SimSdk::sdkSetBlackLevel, &SimSdk::sdkGetBlackLevel, 3.3, Success, 3.25},
        {"black level negative", &SimSdk::sdkSetBlackLevel, &SimSdk::sdkGetBlackLevel, -1.0, ValueOutOfRange, 3.25},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ((sdk.*c.set)(cam.camera, c.requested), c.expected);
        double readBack = -1.0;
        ASSERT_EQ((sdk.*c.get)(cam.camera, &readBack), Success);
        EXPECT_NEAR(readBack, c.stored, 1e-9);
    }

    // Balance ratios on the 1/64 grid: the driver's 1.281 reads back as 82/64.
    struct Balance {
        std::uint32_t selector;
        double requested;
        Result expected;
        double stored;
    };
    const Balance balances[] = {
        {BalanceSelector::Red, 1.875, Success, 1.875},
        {BalanceSelector::Blue, 1.281, Success, 82.0 / 64.0},
        {BalanceSelector::Blue, 0.1, ValueOutOfRange, 82.0 / 64.0},
        {BalanceSelector::Red, 4.5, ValueOutOfRange, 1.875},
    };
    for (const auto& b : balances) {
        EXPECT_EQ(sdk.sdkSetBalanceRatio(cam.camera, b.selector, b.requested), b.expected) << b.requested;
        double readBack = 0;
        ASSERT_EQ(sdk.sdkGetBalanceRatio(cam.camera, b.selector, &readBack), Success);
        EXPECT_EQ(readBack, b.stored) << b.requested;
    }
    double ratio = 0;
    EXPECT_EQ(sdk.sdkSetBalanceRatio(cam.camera, 3, 1.0), InvalidSelector);
    EXPECT_EQ(sdk.sdkGetBalanceRatio(cam.camera, 0, &ratio), InvalidSelector);
}

TEST_F(Rig, GeometryFormatAndTriggerFeaturesCheckTheirValues) {
    OpenCamera cam(sdk, 0, 1);
    std::uint32_t value = 0;
    ASSERT_EQ(sdk.sdkGetSensorWidth(cam.camera, &value), Success);
    EXPECT_EQ(value, 256u);
    ASSERT_EQ(sdk.sdkGetSensorHeight(cam.camera, &value), Success);
    EXPECT_EQ(value, 64u);
    EXPECT_EQ(cam.payload, 256u * 64u * 3u) << "room for RGB8, the largest format";

    struct Case {
        const char* what;
        std::function<Result()> call;
        Result expected;
    };
    const Case cases[] = {
        {"width on increment", [&] { return sdk.sdkSetWidth(cam.camera, 128); }, Success},
        {"width off increment", [&] { return sdk.sdkSetWidth(cam.camera, 130); }, ValueNotOnIncrement},
        {"width above sensor", [&] { return sdk.sdkSetWidth(cam.camera, 264); }, ValueOutOfRange},
        {"width below stamp", [&] { return sdk.sdkSetWidth(cam.camera, 64); }, ValueOutOfRange},
        {"height odd", [&] { return sdk.sdkSetHeight(cam.camera, 33); }, ValueNotOnIncrement},
        {"height", [&] { return sdk.sdkSetHeight(cam.camera, 32); }, Success},
        {"RGB8", [&] { return sdk.sdkSetPixelFormat(cam.camera, PixelFormat::RGB8); }, Success},
        {"Mono16", [&] { return sdk.sdkSetPixelFormat(cam.camera, 0x01100007); }, UnsupportedPixelFormat},
        {"source line", [&] { return sdk.sdkSetTriggerSource(cam.camera, 0); }, Success},
        {"source 1", [&] { return sdk.sdkSetTriggerSource(cam.camera, 1); }, InvalidTriggerSource},
        {"software trigger on line source", [&] { return sdk.sdkExecuteSoftwareTrigger(cam.camera); },
         SoftwareTriggerNotSelected},
        {"source software", [&] { return sdk.sdkSetTriggerSource(cam.camera, 64); }, Success},
        {"software trigger while stopped", [&] { return sdk.sdkExecuteSoftwareTrigger(cam.camera); }, Success},
        {"activation rising", [&] { return sdk.sdkSetTriggerActivation(cam.camera, 1); }, Success},
        {"activation 2", [&] { return sdk.sdkSetTriggerActivation(cam.camera, 2); }, InvalidTriggerActivation},
        {"sequence 0", [&] { return sdk.sdkSetTriggerSequence(cam.camera, 0); }, Success},
        {"sequence 7", [&] { return sdk.sdkSetTriggerSequence(cam.camera, 7); }, InvalidTriggerSequence},
        {"mode on", [&] { return sdk.sdkSetTriggerMode(cam.camera, true); }, Success},
    };
    for (const auto& c : cases) EXPECT_EQ(c.call(), c.expected) << c.what;

    std::uint32_t width = 0, height = 0, activation = 0;
    bool mode = false;
    EXPECT_EQ(sdk.sdkGetWidth(cam.camera, &width), Success);
    EXPECT_EQ(sdk.sdkGetHeight(cam.camera, &height), Success);
    EXPECT_EQ(sdk.sdkGetTriggerActivation(cam.camera, &activation), Success);
    EXPECT_EQ(sdk.sdkGetTriggerMode(cam.camera, &mode), Success);
    EXPECT_EQ(width, 128u);
    EXPECT_EQ(height, 32u);
    EXPECT_EQ(activation, 1u);
    EXPECT_TRUE(mode);
    EXPECT_EQ(sdk.stats(0).ignoredTriggers, 1u);

    // Geometry and format are locked while acquiring.
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_EQ(sdk.sdkSetWidth(cam.camera, 256), LockedWhileAcquiring);
    EXPECT_EQ(sdk.sdkSetPixelFormat(cam.camera, PixelFormat::Mono8), LockedWhileAcquiring);
    EXPECT_EQ(sdk.sdkSetExposureTime(cam.camera, 500.0), Success) << "exposure may change while acquiring";
    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    EXPECT_EQ(sdk.sdkSetWidth(cam.camera, 256), Success);
}

TEST(RigPayload, IsTheLargestFormatAtSensorSize) {
    RigConfig rig = smallRig(false);
    rig.cameras[1].pixelFormats = {PixelFormat::Mono8};
    SimSdk sdk(rig);
    ASSERT_EQ(sdk.sdkInitialize(65535), Success);
    OpenCamera mono(sdk, 1, 0);
    EXPECT_EQ(mono.payload, 256u * 64u);
    EXPECT_EQ(sdk.sdkSetPixelFormat(mono.camera, PixelFormat::RGB8), UnsupportedPixelFormat);
}

TEST_F(Rig, RequestLifeCycleFromCreateToRelease) {
    OpenCamera cam(sdk, 0, 4);
    Taken t = cam.take();
    EXPECT_EQ(t.result, NoCompletedRequest);
    RequestHandle extra = nullptr;
    EXPECT_EQ(sdk.sdkCreateRequest(cam.stream, nullptr, 16, &extra), NullBuffer);
    EXPECT_EQ(sdk.sdkCreateRequest(cam.stream, cam.block.data(), 0, &extra), ZeroBufferSize);
    EXPECT_EQ(sdk.sdkCreateRequest(cam.stream, cam.block.data(), 16, nullptr), NullArgument);

    cam.enqueue(3);
    EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, cam.requests[0]), RequestNotHeld);
    EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, cam.requests[0]), RequestInUse);

    // Flush gives waiting requests back: they can be queued again.
    ASSERT_EQ(sdk.sdkFlushWaitQueue(cam.stream), Success);
    EXPECT_EQ(cam.take().result, NoCompletedRequest);
    cam.enqueue(3);

    // Benchmark mode: the start completes every waiting request at once, oldest first.
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_EQ(sdk.runningThreads(), 0u);
    for (std::uint32_t k = 0; k < 3; ++k) {
        t = cam.take();
        ASSERT_EQ(t.result, Success);
        EXPECT_EQ(t.request, cam.requests[k]);
        EXPECT_EQ(t.buffer, cam.block.data() + k * cam.size);
        EXPECT_EQ(t.size, 256u * 64u) << "Mono8 at full size";
        EXPECT_EQ(cam.stamp(t).frame, k);
        EXPECT_EQ(cam.stamp(t).pattern, kNoPattern);
    }
    EXPECT_EQ(cam.take().result, NoCompletedRequest);

    // A taken request is the driver's again: re-queued it completes at once.
    ASSERT_EQ(sdk.sdkEnqueueRequest(cam.stream, cam.requests[1]), Success);
    t = cam.take();
    ASSERT_EQ(t.result, Success);
    EXPECT_EQ(t.request, cam.requests[1]);
    EXPECT_EQ(cam.stamp(t).frame, 3u);

    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success) << "stopping twice is harmless";
    for (auto r : cam.requests) EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, r), Success);
    EXPECT_EQ(sdk.sdkReleaseRequest(cam.stream, cam.requests[0]), ClosedHandle);

    // A request of another stream.
    OpenCamera other(sdk, 1, 1);
    EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, other.requests[0]), RequestOfOtherStream);
}

TEST_F(Rig, OneWaitPerTakeFindsEveryImageOfABurstAndNoMore) {
    OpenCamera cam(sdk, 0, 6);
    cam.enqueue(6);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);  // six completions, one merged signal
    for (std::uint32_t k = 0; k < 6; ++k) {
        const Taken t = cam.waitAndTake(0);
        ASSERT_EQ(t.result, Success) << "image " << k << " was missed";
        EXPECT_EQ(cam.stamp(t).frame, k);
    }
    EXPECT_NE(platform::waitForEvent(cam.event, 0), 0u) << "no signal is left over after the last take";

    // Images drained without waits leave no stale signal behind either.
    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    cam.enqueue(6);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    while (cam.take().result == Success) {
    }
    EXPECT_NE(platform::waitForEvent(cam.event, 0), 0u) << "a signal must stand for a waiting image";
}

TEST_F(Rig, FrameLargerThanItsBufferCompletesAsAFailureAndWritesNothing) {
    // Requests of 100 bytes inside a guarded block.
    OpenCamera cam(sdk, 0, 0);
    std::vector<std::uint8_t> block(300, 0x5A);
    RequestHandle request = nullptr;
    ASSERT_EQ(sdk.sdkCreateRequest(cam.stream, block.data() + 100, 100, &request), Success);
    ASSERT_EQ(sdk.sdkEnqueueRequest(cam.stream, request), Success);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    Taken t = cam.waitAndTake(0);
    EXPECT_EQ(t.result, FrameTooLarge);
    EXPECT_EQ(t.request, request) << "the request is handed back so it can be re-queued";
    EXPECT_EQ(t.size, 0u);
    for (auto byte : block) ASSERT_EQ(byte, 0x5A);
    EXPECT_EQ(sdk.stats(0).failed, 1u);
    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    ASSERT_EQ(sdk.sdkReleaseRequest(cam.stream, request), Success);
}

TEST_F(Rig, OversizeFaultFailsExactlyTheChosenFrames) {
    sdk.addFrameFault(0, FrameFault{FrameFault::Kind::Oversize, 1, 1});
    OpenCamera cam(sdk, 0, 3);
    cam.enqueue(3);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_EQ(cam.take().result, Success);
    EXPECT_EQ(cam.take().result, FrameTooLarge);
    EXPECT_EQ(cam.take().result, Success);
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
        sdk.failOperation("sdkGetCameraCount", 77, c.when, c.call);
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
    sdk.failOperation("sdkOpenCamera", 1234);
    CameraHandle camera = nullptr;
    EXPECT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), 1234u);
    EXPECT_EQ(camera, nullptr);
    EXPECT_EQ(sdk.openHandles(), 0u);
    EXPECT_THROW(sdk.failOperation("sdkOpenCameraX", 1), std::invalid_argument);
}

TEST_F(Rig, CameraConditionsHungDeadAndUnplugged) {
    CameraInfoRecord record;
    CameraHandle camera = nullptr;
    std::uint32_t count = 0, width = 0;

    // Hung: no answer until an open and close reset the connection.
    sdk.setCondition(0, CameraCondition::Hung);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), NotResponding);
    ASSERT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    EXPECT_EQ(sdk.sdkGetWidth(camera, &width), NotResponding);
    ASSERT_EQ(sdk.sdkCloseCamera(camera), Success);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), Success);

    // Dead: not even the open answers; close of a handle opened before still works.
    OpenCamera cam(sdk, 1, 2);
    sdk.setCondition(1, CameraCondition::Dead);
    EXPECT_EQ(sdk.sdkGetCameraInfo(nullptr, 1, &record), NotResponding);
    EXPECT_EQ(sdk.sdkOpenCamera(1, &camera, nullptr, true, nullptr, 1), NotResponding);
    EXPECT_EQ(sdk.sdkSetExposureTime(cam.camera, 100.0), NotResponding);
    EXPECT_EQ(sdk.sdkStartStream(cam.stream, 8), NotResponding);
    cam.close();
    EXPECT_EQ(sdk.openHandles(), 0u);

    // Unplugged: gone from the enumeration, the others move up.
    sdk.setCondition(1, CameraCondition::Normal);
    OpenCamera first(sdk, 0, 1);
    sdk.setCondition(0, CameraCondition::Unplugged);
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), Success);
    EXPECT_EQ(record.serialNumber(), "SIM0002");
    EXPECT_EQ(sdk.sdkGetWidth(first.camera, &width), CameraUnplugged);
    first.close();
    EXPECT_EQ(sdk.openHandles(), 0u);
}

// ---- The rig file ----

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

std::string loadError(const std::string& text) {
    const std::string path = writeFile("bad-rig.json", text);
    try {
        loadRigFile(path);
    } catch (const RuntimeException& error) {
        return error.what();
    }
    return "no error";
}

TEST(RigFile, TheShippedExamplesLoad) {
    for (const char* name : {"default.json", "faulty.json"}) {
        const RigConfig rig = loadRigFile(std::string(TAVRI_SIM_RIGS) + "/" + name);
        EXPECT_GE(rig.cameras.size(), 2u) << name;
    }
    const RigConfig rig = loadRigFile(std::string(TAVRI_SIM_RIGS) + "/faulty.json");
    EXPECT_EQ(rig.cameras[0].frameFaults.size(), 4u);
    EXPECT_EQ(rig.cameras[1].condition, CameraCondition::Hung);
    ASSERT_EQ(rig.faults.size(), 1u);
    EXPECT_EQ(rig.faults[0].when, FaultWhen::OnCall);
    EXPECT_EQ(rig.faults[0].call, 2u);
}

TEST(RigFile, ErrorsNameTheFileAndThePosition) {
    struct Case {
        const char* text;
        std::vector<std::string> expected;  // parts of the message
    };
    const Case cases[] = {
        {"{\n  \"seed\": 1,\n  \"cameras\": [ {\"serial\": \"A\",, } ]\n}", {"bad-rig.json:3:", "malformed JSON"}},
        {"{\n  \"cameras\": [\n    {\"serial\": \"A\", \"width\": -5}\n  ]\n}",
         {"bad-rig.json:3:", "/cameras/0/width", "integer"}},
        {"{\"projector\": {\"rate\": 60, \"colour\": 1}}", {"bad-rig.json:1:", "/projector/colour", "unknown key"}},
        {"{\"cameras\": [{\"serial\": \"A\", \"pixelFormats\": [\"Mono12\"]}]}", {"/cameras/0/pixelFormats/0"}},
        {"{\"faults\": [{\"operation\": \"sdkFly\", \"code\": 3}]}", {"/faults/0/operation", "no SDK operation"}},
        {"{\"cameras\": [{\"serial\": \"A\"}, {\"serial\": \"A\"}]}", {"bad-rig.json", "serial used twice"}},
        {"{\"cameras\": [{\"serial\": \"A\", \"width\": 1001}]}", {"bad-rig.json", "multiples"}},
    };
    for (const auto& c : cases) {
        const std::string message = loadError(c.text);
        for (const auto& part : c.expected) EXPECT_NE(message.find(part), std::string::npos) << message;
    }
    EXPECT_NE(loadError("").find("bad-rig.json:1:1"), std::string::npos);
    try {
        loadRigFile("/nonexistent/rig.json");
        ADD_FAILURE();
    } catch (const RuntimeException& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/rig.json"), std::string::npos);
    }
}

TEST(RigFile, TheEnvironmentNamesTheRigAndFaultsApply) {
    const std::string path = writeFile(
        "env-rig.json",
        R"({"cameras": [{"serial": "ENV1", "width": 256, "height": 64}],
            "faults": [{"operation": "sdkOpenCamera", "code": 1001, "when": "call", "call": 2}]})");
    ::setenv("TAVRI_SIM_RIG", path.c_str(), 1);
    auto backend = makeSdk();
    ::unsetenv("TAVRI_SIM_RIG");
    TeliSdk& sdk = *backend;
    ASSERT_EQ(sdk.sdkInitialize(65535), Success);
    CameraInfoRecord record;
    ASSERT_EQ(sdk.sdkGetCameraInfo(nullptr, 0, &record), Success);
    EXPECT_EQ(record.serialNumber(), "ENV1");
    CameraHandle camera = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    ASSERT_EQ(sdk.sdkCloseCamera(camera), Success);
    EXPECT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), 1001u);
    EXPECT_EQ(sdk.sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    EXPECT_EQ(defaultRig().cameras.size(), rigFromEnvironment().cameras.size());
}

TEST(RigControl, SetRigIsRefusedWhileACameraIsOpen) {
    SimSdk sdk(smallRig(false));
    ASSERT_EQ(sdk.sdkInitialize(65535), Success);
    {
        OpenCamera cam(sdk, 0, 0);
        EXPECT_FALSE(sdk.setRig(defaultRig()));
    }
    RigConfig one = smallRig(false);
    one.cameras.resize(1);
    EXPECT_TRUE(sdk.setRig(one));
    std::uint32_t count = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, 1u);
    EXPECT_THROW(sdk.condition(1), std::out_of_range);
    one.cameras[0].width = 100;
    EXPECT_THROW(sdk.setRig(one), RuntimeException);
}

// ---- The renderer ----

FrameSettings settingsOf(std::uint32_t format, double exposure = 10000.0, double gain = 0.0) {
    FrameSettings s;
    s.pixelFormat = format;
    s.width = 256;
    s.height = 64;
    s.exposure = exposure;
    s.gain = gain;
    return s;
}

double mean(const std::vector<std::uint8_t>& image) {
    double sum = 0;
    for (auto v : image) sum += v;
    return sum / image.size();
}

TEST(RigRender, IsDeterministicForASeedAndDiffersAcrossSeedsFramesAndPatterns) {
    const RigConfig rig = smallRig();
    RigConfig other = rig;
    other.seed = 2;
    const auto s = settingsOf(PixelFormat::RGB8);
    const auto frame = renderFrame(rig, 0, s, 4, 4);
    EXPECT_EQ(frame, renderFrame(rig, 0, s, 4, 4));
    EXPECT_NE(frame, renderFrame(other, 0, s, 4, 4));
    EXPECT_NE(frame, renderFrame(rig, 1, s, 4, 4)) << "each camera sees its own scene";
    EXPECT_NE(frame, renderFrame(rig, 0, s, 4, 5));
    EXPECT_EQ(frame.size(), 256u * 64u * 3u);
}

TEST(RigRender, StampCarriesFrameAndPatternInEveryFormat) {
    const RigConfig rig = smallRig();
    for (auto format : {PixelFormat::Mono8, PixelFormat::RGB8, PixelFormat::BayerBG8}) {
        for (std::uint32_t k : {0u, 1u, 11u, 119u, 4660u}) {
            const auto image = renderFrame(rig, 0, settingsOf(format), k + 3, k);
            FrameStamp stamp;
            ASSERT_TRUE(readStamp(image.data(), 256, 64, format, &stamp));
            EXPECT_EQ(stamp.frame, k + 3);
            EXPECT_EQ(stamp.pattern, k);
        }
    }
}

TEST(RigRender, BayerBG8IsTheMosaicOfTheColourFrame) {
    const RigConfig rig = smallRig();
    const auto rgb = renderFrame(rig, 0, settingsOf(PixelFormat::RGB8), 2, 9);
    const auto bayer = renderFrame(rig, 0, settingsOf(PixelFormat::BayerBG8), 2, 9);
    const int channelAt[2][2] = {{2, 1}, {1, 0}};  // B G / G R
    for (std::uint32_t y = 2 * kStampCell; y < 64; ++y)
        for (std::uint32_t x = 0; x < 256; ++x)
            ASSERT_EQ(bayer[y * 256 + x], rgb[(y * 256 + x) * 3 + channelAt[y & 1][x & 1]]) << x << "," << y;
}

TEST(RigRender, PatternsAreGrayCodeThenPhaseShifts) {
    ProjectorConfig projector;
    projector.grayBits = 3;
    projector.phaseSteps = 4;
    ASSERT_EQ(patternCount(projector), 9u);
    // Gray code of stripe s = s ^ (s >> 1); three bits over 8 stripes of 32 columns.
    for (std::uint32_t stripe = 0; stripe < 8; ++stripe) {
        const std::uint32_t gray = stripe ^ (stripe >> 1);
        for (std::uint32_t bit = 0; bit < 3; ++bit) {
            const auto row = detail::patternRow(projector, 256, 256, 2 + bit);
            EXPECT_EQ(row[stripe * 32 + 16], ((gray >> (2 - bit)) & 1) ? 1.0f : 0.0f);
        }
    }
    const auto white = detail::patternRow(projector, 256, 256, 0), black = detail::patternRow(projector, 256, 256, 1);
    EXPECT_EQ(white[100], 1.0f);
    EXPECT_EQ(black[100], 0.0f);
    // Phase steps shift a sinusoid of period 256 / 8 = 32 by a quarter period each.
    const auto phase0 = detail::patternRow(projector, 256, 256, 5), phase1 = detail::patternRow(projector, 256, 256, 6);
    EXPECT_NEAR(phase0[0], 1.0f, 1e-6);
    EXPECT_NEAR(phase1[8], 1.0f, 1e-6);
    EXPECT_EQ(detail::patternRow(projector, 256, 256, 9 + 2), detail::patternRow(projector, 256, 256, 2))
        << "the sequence repeats";
}

TEST(RigRender, ExposureAndGainChangeBrightness) {
    const RigConfig rig = smallRig();
    const double base = mean(renderFrame(rig, 0, settingsOf(PixelFormat::Mono8, 5000.0), 1, kNoPattern));
    const double longer = mean(renderFrame(rig, 0, settingsOf(PixelFormat::Mono8, 10000.0), 1, kNoPattern));
    const double gained = mean(renderFrame(rig, 0, settingsOf(PixelFormat::Mono8, 5000.0, 6.0), 1, kNoPattern));
    EXPECT_GT(longer, base * 1.5);
    EXPECT_GT(gained, base * 1.5);
    auto blacker = settingsOf(PixelFormat::Mono8, 5000.0);
    blacker.blackLevel = 20.0;
    EXPECT_GT(mean(renderFrame(rig, 0, blacker, 1, kNoPattern)), base + 10.0);
}

}  // namespace
}  // namespace Tavri::sim::test
