// The Aravis backend through the TeliSdk interface, against fake GigE cameras: the
// stock Aravis fake camera (no ExposureTime, Gain, BlackLevel, BalanceRatio under
// those names, no FallingEdge) and our fixture, which has them all and a trigger
// line pulsed from outside.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "sdk/Backends.h"
#include "sdk/aravis/AravisResult.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace R = aravis::AravisResult;
using gige::allSerials;
using gige::fixtureSerial;

constexpr std::uint32_t kFixtureWidth = 640, kFixtureHeight = 480;
constexpr std::uint32_t kImageWaitMs = 3000;

class Backend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(gige::interfacesBesidesLoopback(), "") << "not inside the GigE test namespace";
        sdk = aravis::makeSdk();
        ASSERT_EQ(sdk->sdkInitialize(65535), R::Success);
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), R::Success);
    }
    void TearDown() override { sdk->sdkTerminate(); }

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
        CameraHandle camera = nullptr;
        EXPECT_EQ(sdk->sdkOpenCamera(indexOf(serial), &camera, nullptr, true, nullptr, 1), R::Success);
        return camera;
    }

    std::unique_ptr<TeliSdk> sdk;
    std::uint32_t count = 0;
};

// An open stream with `n` requests over one block, given back in the driver's
// release order whatever the test did.
class Stream {
public:
    Stream(TeliSdk& sdk, CameraHandle camera, int n, std::uint32_t requestSize = 0) : sdk_(sdk) {
        event_ = platform::createEvent();
        EXPECT_EQ(sdk_.sdkOpenStream(camera, event_, &payload, &stream_, 0), R::Success);
        size = requestSize ? requestSize : payload;
        block_.assign(std::size_t{size} * n + kGuard, kCanary);
        requests.resize(n);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(sdk_.sdkCreateRequest(stream_, data(i), size, &requests[i]), R::Success);
    }
    ~Stream() {
        sdk_.sdkStopStream(stream_);
        sdk_.sdkFlushWaitQueue(stream_);
        RequestHandle r;
        std::uint8_t* b;
        std::uint32_t s;
        while (sdk_.sdkTakeCompletedRequest(stream_, &r, &b, &s) != R::NoCompletedRequest) {
        }
        for (RequestHandle request : requests) EXPECT_EQ(sdk_.sdkReleaseRequest(stream_, request), R::Success);
        EXPECT_EQ(sdk_.sdkCloseStream(stream_), R::Success);
        platform::closeEvent(event_);
    }

    std::uint8_t* data(int i) { return block_.data() + std::size_t{size} * i; }
    bool guardIntact() const {
        return std::all_of(block_.end() - kGuard, block_.end(), [](std::uint8_t b) { return b == kCanary; });
    }
    void enqueue(int n) {
        for (int i = 0; i < n; ++i) ASSERT_EQ(sdk_.sdkEnqueueRequest(stream_, requests[i]), R::Success);
    }
    bool waitImage(std::uint32_t ms = kImageWaitMs) { return platform::waitForEvent(event_, ms) == 0; }
    Result take() { return sdk_.sdkTakeCompletedRequest(stream_, &taken, &takenData, &takenSize); }

    StreamHandle handle() const { return stream_; }

    std::uint32_t payload = 0;
    std::uint32_t size = 0;
    std::vector<RequestHandle> requests;
    RequestHandle taken = nullptr;
    std::uint8_t* takenData = nullptr;
    std::uint32_t takenSize = 0;

private:
    static constexpr std::size_t kGuard = 4096;
    static constexpr std::uint8_t kCanary = 0xAB;
    TeliSdk& sdk_;
    EventHandle event_ = nullptr;
    StreamHandle stream_ = nullptr;
    std::vector<std::uint8_t> block_;
};

// Mono8 at gain 0 and exposure 10000 us: the fake camera's pattern at scale 1.
void showPlainPattern(TeliSdk& sdk, CameraHandle camera) {
    ASSERT_EQ(sdk.sdkSetPixelFormat(camera, PixelFormat::Mono8), R::Success);
    ASSERT_EQ(sdk.sdkSetGain(camera, 0.0), R::Success);
    ASSERT_EQ(sdk.sdkSetExposureTime(camera, 10000.0), R::Success);
}

void triggerFromLine(TeliSdk& sdk, CameraHandle camera) {
    showPlainPattern(sdk, camera);
    ASSERT_EQ(sdk.sdkSetTriggerMode(camera, true), R::Success);
    ASSERT_EQ(sdk.sdkSetTriggerSource(camera, TriggerSourceCode::Hardware), R::Success);
}

TEST_F(Backend, ListsEveryCameraInSerialOrderAndOpensEachByIndex) {
    const auto expected = allSerials();
    ASSERT_EQ(count, expected.size());
    for (int pass = 0; pass < 2; ++pass) {
        if (pass) {
            ASSERT_EQ(sdk->sdkGetCameraCount(&count), R::Success);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            CameraInfoRecord listed;
            listed.clear();
            ASSERT_EQ(sdk->sdkGetCameraInfo(nullptr, i, &listed), R::Success);
            EXPECT_EQ(listed.serialNumber(), expected[i]);
            EXPECT_EQ(listed.firstText(), "Aravis");
            EXPECT_EQ(listed.secondText(), expected[i] == fixtureSerial() ? "TavriFixture" : "Fake");

            CameraHandle camera = nullptr;
            ASSERT_EQ(sdk->sdkOpenCamera(i, &camera, nullptr, true, nullptr, 1), R::Success);
            CameraInfoRecord asked;
            asked.clear();
            EXPECT_EQ(sdk->sdkGetCameraInfo(camera, 0, &asked), R::Success);
            EXPECT_EQ(asked.serialNumber(), expected[i]);
            EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
            EXPECT_EQ(sdk->sdkCloseCamera(camera), R::InvalidHandle);
        }
    }
}

TEST_F(Backend, SecondOpenOfACameraSharesTheConnection) {
    const std::uint32_t index = indexOf(fixtureSerial());
    CameraHandle first = nullptr, second = nullptr;
    ASSERT_EQ(sdk->sdkOpenCamera(index, &first, nullptr, true, nullptr, 1), R::Success);
    ASSERT_EQ(sdk->sdkOpenCamera(index, &second, nullptr, true, nullptr, 1), R::CameraAlreadyOpen);
    ASSERT_NE(first, second);
    EXPECT_EQ(sdk->sdkCloseCamera(second), R::Success);
    std::uint32_t width = 0;
    EXPECT_EQ(sdk->sdkGetWidth(first, &width), R::Success);
    EXPECT_EQ(width, kFixtureWidth);
    EXPECT_EQ(sdk->sdkCloseCamera(first), R::Success);
}

TEST_F(Backend, RefusesUnknownHandlesIndicesAndMissingOutputs) {
    CameraHandle camera = open(fixtureSerial());
    int stranger = 0;
    std::uint32_t value = 0;
    double real = 0.0;
    CameraInfoRecord record;
    StreamHandle stream = nullptr;
    const std::vector<std::pair<const char*, std::function<Result()>>> cases{
        {"width of null camera", [&] { return sdk->sdkGetWidth(nullptr, &value); }},
        {"gain of foreign handle", [&] { return sdk->sdkGetGain(&stranger, &real); }},
        {"enqueue on foreign stream", [&] { return sdk->sdkEnqueueRequest(&stranger, &stranger); }},
        {"close foreign stream", [&] { return sdk->sdkCloseStream(&stranger); }},
        {"info beyond the list", [&] { return sdk->sdkGetCameraInfo(nullptr, count, &record); }},
        {"open beyond the list", [&] { return sdk->sdkOpenCamera(count, &camera, nullptr, true, nullptr, 1); }},
        {"width into null", [&] { return sdk->sdkGetWidth(camera, nullptr); }},
        {"payload into null", [&] { return sdk->sdkOpenStream(camera, nullptr, nullptr, &stream, 0); }},
    };
    const std::vector<Result> expected{R::InvalidHandle, R::InvalidHandle, R::InvalidHandle, R::InvalidHandle,
                                       R::InvalidIndex,  R::InvalidIndex,  R::InvalidArgument, R::InvalidArgument};
    for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].second(), expected[i]) << cases[i].first;
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

// Each control on both kinds of camera: the stock fake camera answers with a
// distinct failure where it lacks the feature or value, never by crashing.
TEST_F(Backend, MapsEachControlOrReportsWhatTheCameraLacks) {
    struct Row {
        const char* what;
        std::function<Result(TeliSdk&, CameraHandle)> call;
        Result stock;
        Result fixture;
    };
    const std::vector<Row> rows{
        {"falling edge", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerActivation(c, 0); },
         R::ValueNotSupported, R::Success},
        {"rising edge", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerActivation(c, 1); }, R::Success,
         R::Success},
        {"activation 2", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerActivation(c, 2); },
         R::ValueNotSupported, R::ValueNotSupported},
        {"hardware source", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSource(c, 0); }, R::Success,
         R::Success},
        {"software source", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSource(c, 64); }, R::Success,
         R::Success},
        {"source code 7", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSource(c, 7); },
         R::ValueNotSupported, R::ValueNotSupported},
        {"sequence 0", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSequence(c, 0); }, R::Success,
         R::Success},
        {"sequence 1", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSequence(c, 1); },
         R::FeatureMissing, R::FeatureMissing},
        {"trigger mode on", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerMode(c, true); }, R::Success,
         R::Success},
        {"software trigger", [](TeliSdk& s, CameraHandle c) { return s.sdkExecuteSoftwareTrigger(c); }, R::Success,
         R::Success},
        {"exposure", [](TeliSdk& s, CameraHandle c) { return s.sdkSetExposureTime(c, 8333.0); }, R::Success,
         R::Success},
        {"gain", [](TeliSdk& s, CameraHandle c) { return s.sdkSetGain(c, 2.0); }, R::Success, R::Success},
        {"black level", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBlackLevel(c, 4.25); },
         R::FeatureMissing, R::Success},
        {"red balance", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBalanceRatio(c, 1, 1.875); },
         R::FeatureMissing, R::Success},
        {"balance selector 3", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBalanceRatio(c, 3, 1.0); },
         R::ValueNotSupported, R::ValueNotSupported},
        {"RGB8", [](TeliSdk& s, CameraHandle c) { return s.sdkSetPixelFormat(c, PixelFormat::RGB8); }, R::Success,
         R::Success},
        {"BayerBG8", [](TeliSdk& s, CameraHandle c) { return s.sdkSetPixelFormat(c, PixelFormat::BayerBG8); },
         R::Success, R::Success},
        {"Mono16", [](TeliSdk& s, CameraHandle c) { return s.sdkSetPixelFormat(c, 0x01100007); }, R::Success,
         R::ValueNotSupported},
    };
    const std::string stock = gige::stockSerials().front();
    CameraHandle stockCamera = open(stock);
    CameraHandle fixtureCamera = open(fixtureSerial());
    for (const Row& row : rows) {
        EXPECT_EQ(row.call(*sdk, stockCamera), row.stock) << row.what << " on " << stock;
        EXPECT_EQ(row.call(*sdk, fixtureCamera), row.fixture) << row.what << " on the fixture";
    }
    EXPECT_EQ(sdk->sdkCloseCamera(stockCamera), R::Success);
    EXPECT_EQ(sdk->sdkCloseCamera(fixtureCamera), R::Success);
}

TEST_F(Backend, ReadsBackWhatTheCameraStored) {
    CameraHandle camera = open(fixtureSerial());
    ASSERT_EQ(sdk->sdkSetExposureTime(camera, 8333.0), R::Success);
    ASSERT_EQ(sdk->sdkSetGain(camera, 3.0), R::Success);
    ASSERT_EQ(sdk->sdkSetBlackLevel(camera, 4.25), R::Success);
    ASSERT_EQ(sdk->sdkSetBalanceRatio(camera, BalanceSelector::Red, 1.875), R::Success);
    ASSERT_EQ(sdk->sdkSetBalanceRatio(camera, BalanceSelector::Blue, 1.281), R::Success);
    ASSERT_EQ(sdk->sdkSetTriggerActivation(camera, 0), R::Success);
    ASSERT_EQ(sdk->sdkSetTriggerMode(camera, true), R::Success);

    double exposure = 0, gain = 0, black = 0, red = 0, blue = 0;
    std::uint32_t activation = 9;
    bool triggerOn = false;
    EXPECT_EQ(sdk->sdkGetExposureTime(camera, &exposure), R::Success);
    EXPECT_EQ(sdk->sdkGetGain(camera, &gain), R::Success);
    EXPECT_EQ(sdk->sdkGetBlackLevel(camera, &black), R::Success);
    EXPECT_EQ(sdk->sdkGetBalanceRatio(camera, BalanceSelector::Red, &red), R::Success);
    EXPECT_EQ(sdk->sdkGetBalanceRatio(camera, BalanceSelector::Blue, &blue), R::Success);
    EXPECT_EQ(sdk->sdkGetTriggerActivation(camera, &activation), R::Success);
    EXPECT_EQ(sdk->sdkGetTriggerMode(camera, &triggerOn), R::Success);
    EXPECT_DOUBLE_EQ(exposure, 8333.0);
    EXPECT_DOUBLE_EQ(gain, 3.0);
    EXPECT_DOUBLE_EQ(black, 4.25);
    EXPECT_DOUBLE_EQ(red, 1.875);
    // The fixture stores ratios in 1/64 steps, as a sensor register would: the red
    // and blue values are kept apart by the selector and blue reads back rounded.
    EXPECT_NE(blue, 1.281);
    EXPECT_NEAR(blue, 1.281, 1.0 / 64);
    EXPECT_DOUBLE_EQ(std::fmod(blue * 64, 1.0), 0.0);
    EXPECT_EQ(activation, 0u);
    EXPECT_TRUE(triggerOn);

    // The stock camera keeps exposure and gain under their older names.
    CameraHandle stock = open(gige::stockSerials().front());
    ASSERT_EQ(sdk->sdkSetExposureTime(stock, 8333.0), R::Success);
    ASSERT_EQ(sdk->sdkSetGain(stock, 2.0), R::Success);
    EXPECT_EQ(sdk->sdkGetExposureTime(stock, &exposure), R::Success);
    EXPECT_EQ(sdk->sdkGetGain(stock, &gain), R::Success);
    EXPECT_DOUBLE_EQ(exposure, 8333.0);
    EXPECT_DOUBLE_EQ(gain, 2.0);
    EXPECT_EQ(sdk->sdkGetBlackLevel(stock, &black), R::FeatureMissing);
    EXPECT_EQ(sdk->sdkGetTriggerActivation(stock, &activation), R::Success);
    EXPECT_EQ(activation, 1u);
    EXPECT_EQ(sdk->sdkCloseCamera(stock), R::Success);
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

TEST_F(Backend, PayloadFitsTheLargestFormatAtSensorSize) {
    for (const std::string& serial : allSerials()) {
        CameraHandle camera = open(serial);
        std::uint32_t sensorWidth = 0, sensorHeight = 0;
        ASSERT_EQ(sdk->sdkGetSensorWidth(camera, &sensorWidth), R::Success);
        ASSERT_EQ(sdk->sdkGetSensorHeight(camera, &sensorHeight), R::Success);
        ASSERT_EQ(sdk->sdkSetPixelFormat(camera, PixelFormat::Mono8), R::Success);
        EventHandle event = platform::createEvent();
        std::uint32_t payload = 0;
        StreamHandle stream = nullptr;
        ASSERT_EQ(sdk->sdkOpenStream(camera, event, &payload, &stream, 0), R::Success);
        EXPECT_EQ(payload, sensorWidth * sensorHeight * 3) << serial;
        StreamHandle second = nullptr;
        EXPECT_EQ(sdk->sdkOpenStream(camera, event, &payload, &second, 0), R::StreamAlreadyOpen);
        EXPECT_EQ(sdk->sdkCloseStream(stream), R::Success);
        EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
        platform::closeEvent(event);
    }
}

TEST_F(Backend, SoftwareTriggeredImagesCarryTheTestPattern) {
    CameraHandle camera = open(fixtureSerial());
    showPlainPattern(*sdk, camera);
    ASSERT_EQ(sdk->sdkSetTriggerMode(camera, true), R::Success);
    ASSERT_EQ(sdk->sdkSetTriggerSource(camera, TriggerSourceCode::Software), R::Success);
    {
        Stream stream(*sdk, camera, 2);
        stream.enqueue(2);
        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        int previousFrame = -1;
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(sdk->sdkExecuteSoftwareTrigger(camera), R::Success);
            ASSERT_TRUE(stream.waitImage()) << "image " << i;
            ASSERT_EQ(stream.take(), R::Success);
            ASSERT_EQ(stream.takenSize, kFixtureWidth * kFixtureHeight);
            EXPECT_EQ(gige::patternMismatches(stream.takenData, kFixtureWidth, kFixtureHeight), 0u);
            // One trigger, one frame: the frame counter in the pattern steps by one.
            if (previousFrame >= 0) {
                EXPECT_EQ(stream.takenData[0], (previousFrame + 1) % 255);
            }
            previousFrame = stream.takenData[0];
            ASSERT_EQ(sdk->sdkEnqueueRequest(stream.handle(), stream.taken), R::Success);
        }
        EXPECT_TRUE(stream.guardIntact());
    }
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

// Frames that complete in a burst merge into one signal of the auto-reset event;
// the backend signals again after each take that leaves images behind, so one wait
// per take finds them all, and none more.
TEST_F(Backend, OneWaitPerTakeFindsEveryImageOfABurst) {
    constexpr int kBurst = 12;
    CameraHandle camera = open(fixtureSerial());
    triggerFromLine(*sdk, camera);
    {
        Stream stream(*sdk, camera, kBurst);
        stream.enqueue(kBurst);
        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        gige::pulseTriggerLine(kBurst);
        std::this_thread::sleep_for(std::chrono::milliseconds(600));  // let the burst pile up
        std::vector<RequestHandle> seen;
        for (int i = 0; i < kBurst; ++i) {
            ASSERT_TRUE(stream.waitImage()) << "image " << i;
            ASSERT_EQ(stream.take(), R::Success) << "image " << i;
            EXPECT_EQ(gige::patternMismatches(stream.takenData, kFixtureWidth, kFixtureHeight), 0u);
            seen.push_back(stream.taken);
        }
        EXPECT_FALSE(stream.waitImage(300));
        EXPECT_EQ(stream.take(), R::NoCompletedRequest);
        // Requests come back in the order they were queued, each once.
        EXPECT_EQ(seen, stream.requests);
        EXPECT_TRUE(stream.guardIntact());
    }
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

TEST_F(Backend, FlushHandsBackWaitingRequestsAndKeepsCompletedOnes) {
    CameraHandle camera = open(fixtureSerial());
    triggerFromLine(*sdk, camera);
    {
        Stream stream(*sdk, camera, 6);
        stream.enqueue(6);
        EXPECT_EQ(sdk->sdkEnqueueRequest(stream.handle(), stream.requests[0]), R::RequestBusy);
        EXPECT_EQ(sdk->sdkReleaseRequest(stream.handle(), stream.requests[0]), R::RequestBusy);
        ASSERT_EQ(sdk->sdkFlushWaitQueue(stream.handle()), R::Success);
        EXPECT_EQ(stream.take(), R::NoCompletedRequest);
        stream.enqueue(6);  // every request is the driver's again

        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        gige::pulseTriggerLine(2);
        ASSERT_TRUE(stream.waitImage());
        ASSERT_EQ(stream.take(), R::Success);
        EXPECT_EQ(stream.taken, stream.requests[0]);
        ASSERT_TRUE(stream.waitImage());  // the second image is complete, not yet taken
        ASSERT_EQ(sdk->sdkFlushWaitQueue(stream.handle()), R::Success);
        ASSERT_EQ(stream.take(), R::Success) << "a completed image was lost by the flush";
        EXPECT_EQ(stream.taken, stream.requests[1]);
        EXPECT_EQ(gige::patternMismatches(stream.takenData, kFixtureWidth, kFixtureHeight), 0u);
        EXPECT_EQ(stream.take(), R::NoCompletedRequest);
        // Nothing waits any more: a pulse finds no buffer to fill.
        gige::pulseTriggerLine(1);
        EXPECT_FALSE(stream.waitImage(500));
        EXPECT_EQ(stream.take(), R::NoCompletedRequest);
    }
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

TEST_F(Backend, FrameLargerThanItsRequestFailsWithoutOverrunAndTheRequestStaysUsable) {
    constexpr std::uint32_t kSmall = 40 * 30;
    CameraHandle camera = open(fixtureSerial());
    triggerFromLine(*sdk, camera);
    {
        Stream stream(*sdk, camera, 1, kSmall);
        stream.enqueue(1);
        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        gige::pulseTriggerLine(1);
        ASSERT_TRUE(stream.waitImage());
        EXPECT_EQ(stream.take(), R::ImageTooLarge);
        EXPECT_EQ(stream.taken, stream.requests[0]);
        EXPECT_EQ(stream.takenSize, 0u);
        EXPECT_TRUE(stream.guardIntact());

        ASSERT_EQ(sdk->sdkStopStream(stream.handle()), R::Success);
        ASSERT_EQ(sdk->sdkSetWidth(camera, 40), R::Success);
        ASSERT_EQ(sdk->sdkSetHeight(camera, 30), R::Success);
        ASSERT_EQ(sdk->sdkEnqueueRequest(stream.handle(), stream.taken), R::Success);
        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        gige::pulseTriggerLine(1);
        ASSERT_TRUE(stream.waitImage());
        ASSERT_EQ(stream.take(), R::Success);
        EXPECT_EQ(stream.takenSize, kSmall);
        EXPECT_EQ(gige::patternMismatches(stream.takenData, 40, 30), 0u);
        EXPECT_TRUE(stream.guardIntact());
    }
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

TEST_F(Backend, CameraLostMidStreamAnswersNotRespondingAndReleasesCleanly) {
    const std::string victim = gige::stockSerials().back();
    CameraHandle camera = open(victim);
    ASSERT_EQ(sdk->sdkSetTriggerMode(camera, false), R::Success);  // free run
    {
        Stream stream(*sdk, camera, 8);
        stream.enqueue(8);
        ASSERT_EQ(sdk->sdkStartStream(stream.handle(), 8), R::Success);
        ASSERT_TRUE(stream.waitImage());
        ASSERT_EQ(stream.take(), R::Success);

        ASSERT_TRUE(gige::killCamera(victim));
        Result answer = R::Success;
        CameraInfoRecord record;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (answer == R::Success && std::chrono::steady_clock::now() < deadline) {
            answer = sdk->sdkGetCameraInfo(camera, 0, &record);
            if (answer == R::Success) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        EXPECT_EQ(answer, R::NotResponding);
        std::uint32_t width = 0;
        EXPECT_EQ(sdk->sdkGetWidth(camera, &width), R::NotResponding);
        EXPECT_EQ(sdk->sdkExecuteSoftwareTrigger(camera), R::NotResponding);
        // Whatever was delivered before is still taken; then nothing comes.
        while (stream.take() == R::Success) {
        }
        EXPECT_FALSE(stream.waitImage(500));
    }
    EXPECT_EQ(sdk->sdkCloseCamera(camera), R::Success);
}

}  // namespace
}  // namespace Tavri
