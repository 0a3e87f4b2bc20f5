// The backend contract every backend passes: enumeration and open, the shared result
// codes, the request queue, the completion-event rule (sdk/CompletionEvent.h) and the
// failed-take rule (sdk/TeliSdk.h).

#include "tests/contract/ContractSuite.h"

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/SdkStream.h"

namespace Tavri::testing {
namespace {

using namespace SdkResult;

constexpr int kBurst = 6;
constexpr std::uint32_t kSmallRequest = 1024;  // smaller than any image of any backend's camera

// Everything opened is closed and the backend terminated, whatever failed.
class Contract : public ::testing::TestWithParam<ContractBackend> {
protected:
    void SetUp() override {
        sdk = GetParam().make();
        ASSERT_TRUE(sdk);
        ASSERT_EQ(sdk->sdkInitialize(65535), Success);
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), Success);
        ASSERT_GT(count, 0u);
    }
    void TearDown() override {
        if (stream) EXPECT_TRUE(stream->guardsIntact()) << "a frame wrote outside its request";
        stream.reset();
        for (CameraHandle handle : opened) EXPECT_EQ(sdk->sdkCloseCamera(handle), Success);
        if (sdk) sdk->sdkTerminate();
    }

    std::string serialAt(std::uint32_t index, CameraHandle handle = nullptr) {
        CameraInfoRecord record;
        record.clear();
        EXPECT_EQ(sdk->sdkGetCameraInfo(handle, index, &record), Success);
        return record.serialNumber();
    }
    CameraHandle open(std::uint32_t index) {
        CameraHandle handle = nullptr;
        EXPECT_EQ(sdk->sdkOpenCamera(index, &handle, nullptr, true, nullptr, 1), Success);
        if (handle) opened.push_back(handle);
        return handle;
    }
    CameraHandle openUnderTest() {
        for (std::uint32_t i = 0; i < count; ++i)
            if (serialAt(i) == GetParam().serial()) return open(i);
        ADD_FAILURE() << "no camera " << GetParam().serial();
        return nullptr;
    }
    // The camera under test, Mono8 and triggered, with `n` requests queued and started.
    void startStream(int n, std::uint32_t requestSize = 0) {
        camera = openUnderTest();
        ASSERT_NE(camera, nullptr);
        ASSERT_EQ(sdk->sdkSetPixelFormat(camera, PixelFormat::Mono8), Success);
        ASSERT_EQ(sdk->sdkSetTriggerMode(camera, true), Success);
        ASSERT_EQ(sdk->sdkSetTriggerSource(camera, GetParam().triggerSource), Success);
        stream = std::make_unique<SdkStream>(*sdk, camera, n, requestSize);
        ASSERT_NO_FATAL_FAILURE(stream->enqueueAll());
        ASSERT_EQ(sdk->sdkStartStream(stream->handle, 8), Success);
    }
    void trigger(int frames) { GetParam().trigger(*sdk, camera, frames); }
    // Triggers `frames` frames and lets them all complete before anything is taken.
    void burst(int frames) {
        trigger(frames);
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    }

    std::unique_ptr<TeliSdk> sdk;
    std::uint32_t count = 0;
    std::vector<CameraHandle> opened;
    CameraHandle camera = nullptr;
    std::unique_ptr<SdkStream> stream;
};

TEST_P(Contract, ListsCamerasInTheSameOrderEachTimeAndOpensEach) {
    std::vector<std::string> first;
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), Success);
        std::vector<std::string> serials;
        for (std::uint32_t i = 0; i < count; ++i) {
            serials.push_back(serialAt(i));
            CameraHandle handle = nullptr;
            ASSERT_EQ(sdk->sdkOpenCamera(i, &handle, nullptr, true, nullptr, 1), Success);
            EXPECT_EQ(serialAt(0, handle), serials.back()) << "an open handle names its own camera";
            EXPECT_EQ(sdk->sdkCloseCamera(handle), Success);
        }
        if (pass == 0) first = serials;
        EXPECT_EQ(serials, first);
    }
}

TEST_P(Contract, ASecondOpenIsAlsoSuccessAndClosesAlone) {
    camera = openUnderTest();
    CameraHandle second = nullptr;
    CameraHandle first = camera;
    for (std::uint32_t i = 0; i < count; ++i)
        if (serialAt(i) == GetParam().serial())
            ASSERT_EQ(sdk->sdkOpenCamera(i, &second, nullptr, true, nullptr, 1), CameraAlreadyOpen);
    EXPECT_EQ(sdk->sdkCloseCamera(second), Success);
    std::uint32_t width = 0;
    EXPECT_EQ(sdk->sdkGetWidth(first, &width), Success);
    EXPECT_GT(width, 0u);
}

// Causes every backend can meet answer the shared codes of sdk/SdkResult.h.
TEST_P(Contract, SharedCausesAnswerSharedCodes) {
    CameraInfoRecord record;
    CameraHandle handle = nullptr;
    std::uint32_t number = 0;
    EXPECT_EQ(sdk->sdkGetCameraCount(nullptr), InvalidArgument);
    EXPECT_EQ(sdk->sdkGetCameraInfo(nullptr, count, &record), IndexOutOfRange);
    EXPECT_EQ(sdk->sdkOpenCamera(count, &handle, nullptr, true, nullptr, 1), IndexOutOfRange);
    EXPECT_EQ(sdk->sdkGetWidth(nullptr, &number), InvalidHandle);

    ASSERT_NO_FATAL_FAILURE(startStream(2));
    StreamHandle another = nullptr;
    EXPECT_EQ(sdk->sdkOpenStream(camera, nullptr, &number, &another, 0), StreamAlreadyOpen);
    RequestHandle request = nullptr;
    EXPECT_EQ(sdk->sdkCreateRequest(stream->handle, nullptr, 16, &request), InvalidArgument);
    EXPECT_EQ(sdk->sdkCreateRequest(stream->handle, stream->buffer(0), 0, &request), InvalidArgument);
    EXPECT_EQ(stream->enqueue(stream->requests[0]), RequestBusy) << "queued already";
    EXPECT_EQ(sdk->sdkReleaseRequest(stream->handle, stream->requests[0]), RequestBusy) << "still queued";
    EXPECT_EQ(stream->take(), NoCompletedRequest);
}

// The completion-event rule: frames that complete together merge into one signal, and
// the backend signals again after each take that leaves images, so one wait per take
// finds them all, in the order queued, and no signal is left after the last.
TEST_P(Contract, OneWaitPerTakeFindsEveryImageOfABurstAndNoMore) {
    ASSERT_NO_FATAL_FAILURE(startStream(kBurst));
    burst(kBurst);
    std::vector<RequestHandle> seen;
    for (int i = 0; i < kBurst; ++i) {
        ASSERT_TRUE(stream->waitImage()) << "image " << i << " was missed";
        ASSERT_EQ(stream->take(), Success) << "image " << i;
        EXPECT_GT(stream->takenSize, 0u);
        seen.push_back(stream->taken);
    }
    EXPECT_EQ(seen, stream->requests);
    EXPECT_FALSE(stream->waitImage(300)) << "no signal may be left after the last take";
    EXPECT_EQ(stream->take(), NoCompletedRequest);
}

// Images taken without a wait (a drain) leave no signal behind: a signal always
// stands for an image waiting to be taken.
TEST_P(Contract, ImagesDrainedWithoutWaitsLeaveNoSignal) {
    ASSERT_NO_FATAL_FAILURE(startStream(3));
    burst(3);
    int taken = 0;
    while (stream->take() == Success) ++taken;
    EXPECT_EQ(taken, 3);
    EXPECT_FALSE(stream->waitImage(300));
}

// A flush hands back the requests still waiting for a frame and keeps the image that
// has completed.
TEST_P(Contract, FlushHandsBackWaitingRequestsAndKeepsCompletedOnes) {
    ASSERT_NO_FATAL_FAILURE(startStream(4));
    burst(1);
    ASSERT_TRUE(stream->waitImage());
    ASSERT_EQ(sdk->sdkFlushWaitQueue(stream->handle), Success);
    ASSERT_EQ(stream->take(), Success) << "the flush lost a completed image";
    EXPECT_EQ(stream->taken, stream->requests[0]);
    EXPECT_EQ(stream->take(), NoCompletedRequest);
    // Nothing waits any more: a frame finds no request, and the rest are free to queue.
    trigger(1);
    EXPECT_FALSE(stream->waitImage(500));
    EXPECT_EQ(stream->take(), NoCompletedRequest);
    for (int i = 1; i < 4; ++i) EXPECT_EQ(stream->enqueue(stream->requests[i]), Success) << "request " << i;
}

// The failed-take rule: a frame larger than its request completes as a failure with
// nothing written, and its request stays on the wait queue, so however many frames
// fail, the pool stays whole and frames keep arriving.
TEST_P(Contract, AFailedTakeLeavesItsRequestQueuedSoThePoolStaysWhole) {
    ASSERT_NO_FATAL_FAILURE(startStream(2, kSmallRequest));
    for (int frame = 0; frame < 6; ++frame) {
        trigger(1);
        ASSERT_TRUE(stream->waitImage()) << "frame " << frame << ": the pool ran dry";
        ASSERT_EQ(stream->take(), FrameTooLarge) << "frame " << frame;
        EXPECT_EQ(stream->taken, stream->requests[frame % 2]) << "frame " << frame;
        EXPECT_EQ(stream->takenSize, 0u);
        EXPECT_EQ(stream->enqueue(stream->taken), RequestBusy) << "the failed request is queued already";
    }
    // On a stopped stream a failed request is handed back instead.
    trigger(1);
    ASSERT_TRUE(stream->waitImage());
    ASSERT_EQ(sdk->sdkStopStream(stream->handle), Success);
    ASSERT_EQ(stream->take(), FrameTooLarge);
    EXPECT_EQ(sdk->sdkFlushWaitQueue(stream->handle), Success);
    EXPECT_EQ(stream->enqueue(stream->taken), Success);
}

INSTANTIATE_TEST_SUITE_P(Backends, Contract, ::testing::Values(contractBackend()),
                         [](const ::testing::TestParamInfo<ContractBackend>& info) { return info.param.name; });

}  // namespace
}  // namespace Tavri::testing
