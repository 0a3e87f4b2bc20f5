// The Aravis backend through the TeliSdk interface, against fake GigE cameras: the
// stock Aravis fake camera (no BlackLevel, no BalanceRatio, no FallingEdge) and our
// fixture, which has them all and a trigger line pulsed from outside. Streams show
// Mono8 at gain 0 and exposure 10000 us: the fake camera's pattern at scale 1.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/Platform.h"
#include "sdk/Backends.h"
#include "sdk/aravis/AravisResult.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace R = aravis::AravisResult;
using gige::fixtureSerial;

constexpr std::uint32_t kWidth = 640, kHeight = 480;  // the fixture's sensor

// An open stream with `n` requests over one block followed by a guard zone; gives
// everything back in the driver's order (stop, flush, drain, release, close).
class Stream {
public:
    Stream(TeliSdk& sdk, CameraHandle camera, int n, std::uint32_t requestSize) : sdk_(sdk) {
        std::uint32_t payload = 0;
        EXPECT_EQ(sdk_.sdkOpenStream(camera, event_, &payload, &handle, 0), R::Success);
        const std::uint32_t size = requestSize ? requestSize : payload;
        block_.assign(std::size_t{size} * n + kGuard, kCanary);
        requests.resize(n);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(sdk_.sdkCreateRequest(handle, &block_[std::size_t{size} * i], size, &requests[i]), R::Success);
    }
    ~Stream() {
        sdk_.sdkStopStream(handle);
        sdk_.sdkFlushWaitQueue(handle);
        while (take() != R::NoCompletedRequest) {
        }
        for (RequestHandle request : requests) EXPECT_EQ(sdk_.sdkReleaseRequest(handle, request), R::Success);
        EXPECT_EQ(sdk_.sdkCloseStream(handle), R::Success);
        platform::closeEvent(event_);
    }

    bool guardIntact() const {
        return std::all_of(block_.end() - kGuard, block_.end(), [](std::uint8_t b) { return b == kCanary; });
    }
    bool waitImage(std::uint32_t ms = 3000) { return platform::waitForEvent(event_, ms) == 0; }
    Result take() { return sdk_.sdkTakeCompletedRequest(handle, &taken, &takenData, &takenSize); }
    Result enqueue(RequestHandle request) { return sdk_.sdkEnqueueRequest(handle, request); }

    StreamHandle handle = nullptr;
    std::vector<RequestHandle> requests;
    RequestHandle taken = nullptr;
    std::uint8_t* takenData = nullptr;
    std::uint32_t takenSize = 0;

private:
    static constexpr std::size_t kGuard = 4096;
    static constexpr std::uint8_t kCanary = 0xAB;
    TeliSdk& sdk_;
    EventHandle event_ = platform::createEvent();
    std::vector<std::uint8_t> block_;
};

class Backend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sdk->sdkInitialize(65535), R::Success);
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), R::Success);
    }
    void TearDown() override {
        EXPECT_TRUE(!stream || stream->guardIntact()) << "a frame wrote past its request";
        stream.reset();
        for (CameraHandle handle : opened) EXPECT_EQ(sdk->sdkCloseCamera(handle), R::Success);
        sdk->sdkTerminate();
    }

    std::uint32_t indexOf(const std::string& serial) {
        for (std::uint32_t i = 0; i < count; ++i) {
            CameraInfoRecord record;
            record.clear();
            if (sdk->sdkGetCameraInfo(nullptr, i, &record) == R::Success && record.serialNumber() == serial) return i;
        }
        ADD_FAILURE() << "no camera " << serial;
        return count;
    }
    CameraHandle open(const std::string& serial) {
        CameraHandle handle = nullptr;
        EXPECT_EQ(sdk->sdkOpenCamera(indexOf(serial), &handle, nullptr, true, nullptr, 1), R::Success);
        if (handle) opened.push_back(handle);
        return handle;
    }

    // Opens the fixture triggered from `source`, with `n` requests queued and started.
    void streamFromFixture(std::uint32_t source, int n, std::uint32_t requestSize = 0) {
        camera = open(fixtureSerial());
        ASSERT_EQ(sdk->sdkSetPixelFormat(camera, PixelFormat::Mono8), R::Success);
        ASSERT_EQ(sdk->sdkSetGain(camera, 0.0), R::Success);
        ASSERT_EQ(sdk->sdkSetExposureTime(camera, 10000.0), R::Success);
        ASSERT_EQ(sdk->sdkSetTriggerMode(camera, true), R::Success);
        ASSERT_EQ(sdk->sdkSetTriggerSource(camera, source), R::Success);
        stream = std::make_unique<Stream>(*sdk, camera, n, requestSize);
        for (RequestHandle request : stream->requests) ASSERT_EQ(stream->enqueue(request), R::Success);
        ASSERT_EQ(sdk->sdkStartStream(stream->handle, 8), R::Success);
    }
    // Waits for the next image and takes it: whole, and carrying the pattern.
    void takePatternImage(std::uint32_t width = kWidth, std::uint32_t height = kHeight) {
        ASSERT_TRUE(stream->waitImage());
        ASSERT_EQ(stream->take(), R::Success);
        ASSERT_EQ(stream->takenSize, width * height);
        EXPECT_EQ(gige::patternMismatches(stream->takenData, width, height), 0u);
    }

    std::unique_ptr<TeliSdk> sdk = aravis::makeSdk();
    std::uint32_t count = 0;
    std::vector<CameraHandle> opened;
    CameraHandle camera = nullptr;
    std::unique_ptr<Stream> stream;
};

TEST_F(Backend, ListsCamerasInTheSameSerialOrderEachTimeAndOpensEach) {
    const auto expected = gige::allSerials();
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), R::Success);
        ASSERT_EQ(count, expected.size());
        for (std::uint32_t i = 0; i < count; ++i) {
            CameraInfoRecord listed, asked;
            listed.clear();
            asked.clear();
            ASSERT_EQ(sdk->sdkGetCameraInfo(nullptr, i, &listed), R::Success);
            EXPECT_EQ(listed.serialNumber(), expected[i]);
            EXPECT_EQ(listed.secondText(), expected[i] == fixtureSerial() ? "TavriFixture" : "Fake");
            CameraHandle handle = nullptr;
            ASSERT_EQ(sdk->sdkOpenCamera(i, &handle, nullptr, true, nullptr, 1), R::Success);
            EXPECT_EQ(sdk->sdkGetCameraInfo(handle, 0, &asked), R::Success);
            EXPECT_EQ(asked.serialNumber(), expected[i]);
            EXPECT_EQ(sdk->sdkCloseCamera(handle), R::Success);
        }
    }
}

// A GigE camera takes one controller, so a second open shares the first's connection.
TEST_F(Backend, SecondOpenOfACameraSharesTheConnection) {
    camera = open(fixtureSerial());
    CameraHandle second = nullptr;
    ASSERT_EQ(sdk->sdkOpenCamera(indexOf(fixtureSerial()), &second, nullptr, true, nullptr, 1), R::CameraAlreadyOpen);
    EXPECT_EQ(sdk->sdkCloseCamera(second), R::Success);
    std::uint32_t width = 0;
    EXPECT_EQ(sdk->sdkGetWidth(camera, &width), R::Success);
    EXPECT_EQ(width, kWidth);
}

// Each lack of the stock camera is its own failure code, never a crash; the fixture
// takes the same calls.
TEST_F(Backend, ReportsWhatEachCameraLacks) {
    using C = CameraHandle;
    double value = 0;
    const std::vector<std::tuple<const char*, std::function<Result(C)>, Result, Result>> rows{  // stock, fixture
        {"falling edge", [&](C c) { return sdk->sdkSetTriggerActivation(c, 0); }, R::ValueNotSupported, R::Success},
        {"sequence 1", [&](C c) { return sdk->sdkSetTriggerSequence(c, 1); }, R::FeatureMissing, R::FeatureMissing},
        {"set black level", [&](C c) { return sdk->sdkSetBlackLevel(c, 4.25); }, R::FeatureMissing, R::Success},
        {"get black level", [&](C c) { return sdk->sdkGetBlackLevel(c, &value); }, R::FeatureMissing, R::Success},
        {"red balance", [&](C c) { return sdk->sdkSetBalanceRatio(c, BalanceSelector::Red, 1.5); }, R::FeatureMissing,
         R::Success},
        {"RGB8", [&](C c) { return sdk->sdkSetPixelFormat(c, PixelFormat::RGB8); }, R::Success, R::Success},
        {"BayerBG8", [&](C c) { return sdk->sdkSetPixelFormat(c, PixelFormat::BayerBG8); }, R::Success, R::Success},
        {"Mono16", [&](C c) { return sdk->sdkSetPixelFormat(c, 0x01100007); }, R::Success, R::ValueNotSupported},
    };
    const CameraHandle stock = open(gige::stockSerials().front());
    camera = open(fixtureSerial());
    for (const auto& [what, call, onStock, onFixture] : rows) {
        EXPECT_EQ(call(stock), onStock) << what << " on the stock camera";
        EXPECT_EQ(call(camera), onFixture) << what << " on the fixture";
    }
}

// One software trigger, one image: the frame number in the pattern steps by one.
TEST_F(Backend, SoftwareTriggeredImagesCarryThePattern) {
    ASSERT_NO_FATAL_FAILURE(streamFromFixture(TriggerSourceCode::Software, 2));
    std::vector<int> frames;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(sdk->sdkExecuteSoftwareTrigger(camera), R::Success);
        ASSERT_NO_FATAL_FAILURE(takePatternImage()) << "image " << i;
        frames.push_back(stream->takenData[0]);
        ASSERT_EQ(stream->enqueue(stream->taken), R::Success);
    }
    for (std::size_t i = 1; i < frames.size(); ++i) EXPECT_EQ(frames[i], (frames[i - 1] + 1) % 255) << "image " << i;
}

// Frames that complete in a burst merge into one signal of the auto-reset event;
// the backend signals again after each take that leaves images behind, so one wait
// per take finds them all, in the order queued, and none more.
TEST_F(Backend, OneWaitPerTakeFindsEveryImageOfABurst) {
    constexpr int kBurst = 12;
    ASSERT_NO_FATAL_FAILURE(streamFromFixture(TriggerSourceCode::Hardware, kBurst));
    gige::pulseTriggerLine(kBurst);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));  // let the burst pile up
    std::vector<RequestHandle> seen;
    for (int i = 0; i < kBurst; ++i) {
        ASSERT_NO_FATAL_FAILURE(takePatternImage()) << "image " << i;
        seen.push_back(stream->taken);
    }
    EXPECT_FALSE(stream->waitImage(300));
    EXPECT_EQ(stream->take(), R::NoCompletedRequest);
    EXPECT_EQ(seen, stream->requests);
}

// A flush hands back the requests still waiting for a frame and keeps the image
// already completed.
TEST_F(Backend, FlushHandsBackWaitingRequestsAndKeepsCompletedOnes) {
    ASSERT_NO_FATAL_FAILURE(streamFromFixture(TriggerSourceCode::Hardware, 6));
    EXPECT_EQ(stream->enqueue(stream->requests[0]), R::RequestBusy);
    gige::pulseTriggerLine(2);
    ASSERT_NO_FATAL_FAILURE(takePatternImage());
    ASSERT_TRUE(stream->waitImage());  // the second image is complete, not yet taken
    ASSERT_EQ(sdk->sdkFlushWaitQueue(stream->handle), R::Success);
    ASSERT_EQ(stream->take(), R::Success) << "the flush lost a completed image";
    EXPECT_EQ(stream->taken, stream->requests[1]);
    EXPECT_EQ(stream->take(), R::NoCompletedRequest);
    // Nothing waits any more: a pulse finds no buffer, and the rest are free to queue.
    gige::pulseTriggerLine(1);
    EXPECT_FALSE(stream->waitImage(500));
    EXPECT_EQ(stream->take(), R::NoCompletedRequest);
    for (int i = 2; i < 6; ++i) EXPECT_EQ(stream->enqueue(stream->requests[i]), R::Success);
}

TEST_F(Backend, FrameLargerThanItsRequestFailsWithoutOverrunAndTheRequestStaysUsable) {
    ASSERT_NO_FATAL_FAILURE(streamFromFixture(TriggerSourceCode::Hardware, 1, 40 * 30));
    gige::pulseTriggerLine(1);
    ASSERT_TRUE(stream->waitImage());
    EXPECT_EQ(stream->take(), R::ImageTooLarge);
    EXPECT_EQ(stream->taken, stream->requests[0]);
    EXPECT_EQ(stream->takenSize, 0u);

    ASSERT_EQ(sdk->sdkStopStream(stream->handle), R::Success);
    ASSERT_EQ(sdk->sdkSetWidth(camera, 40), R::Success);
    ASSERT_EQ(sdk->sdkSetHeight(camera, 30), R::Success);
    ASSERT_EQ(stream->enqueue(stream->taken), R::Success);
    ASSERT_EQ(sdk->sdkStartStream(stream->handle, 8), R::Success);
    gige::pulseTriggerLine(1);
    takePatternImage(40, 30);
}

}  // namespace
}  // namespace Tavri
