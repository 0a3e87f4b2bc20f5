// What the Aravis backend does beyond the backend contract (tests/contract, run over
// Aravis by AravisContract.cpp), against fake GigE cameras: the stock Aravis fake
// camera (no BlackLevel, no BalanceRatio, no FallingEdge) and our fixture, which has
// them all and a trigger line pulsed from outside. Streams show
// Mono8 at gain 0 and exposure 10000 us: the fake camera's pattern at scale 1.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include "sdk/Backends.h"
#include "sdk/aravis/AravisResult.h"
#include "tests/gige/GigeCameras.h"
#include "tests/support/SdkStream.h"

namespace Tavri {
namespace {

namespace R = aravis::AravisResult;
using gige::fixtureSerial;

constexpr std::uint32_t kWidth = 640, kHeight = 480;  // the fixture's sensor

using Stream = testing::SdkStream;

class Backend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sdk->sdkInitialize(65535), R::Success);
        ASSERT_EQ(sdk->sdkGetCameraCount(&count), R::Success);
    }
    void TearDown() override {
        EXPECT_TRUE(!stream || stream->guardsIntact()) << "a frame wrote outside its request";
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
        ASSERT_NO_FATAL_FAILURE(stream->enqueueAll());
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

// Discovery lists the cameras sorted by serial (the contract suite checks that the
// order holds and that each opens).
TEST_F(Backend, ListsCamerasSortedBySerialWithTheirModels) {
    const auto expected = gige::allSerials();
    ASSERT_EQ(count, expected.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        CameraInfoRecord listed;
        listed.clear();
        ASSERT_EQ(sdk->sdkGetCameraInfo(nullptr, i, &listed), R::Success);
        EXPECT_EQ(listed.serialNumber(), expected[i]);
        const auto fixtures = gige::fixtureSerials();
        const bool fixture = std::find(fixtures.begin(), fixtures.end(), expected[i]) != fixtures.end();
        EXPECT_EQ(listed.secondText(), fixture ? "TavriFixture" : "Fake");
    }
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

// A request too small for the full frame (the contract suite checks the failure and
// that the request stays queued) takes the image once the region of interest fits it.
TEST_F(Backend, ARequestTooSmallForTheFrameTakesItOnceTheRegionFits) {
    ASSERT_NO_FATAL_FAILURE(streamFromFixture(TriggerSourceCode::Hardware, 1, 40 * 30));
    gige::pulseTriggerLine(1);
    ASSERT_TRUE(stream->waitImage());
    EXPECT_EQ(stream->take(), R::ImageTooLarge);
    ASSERT_EQ(sdk->sdkStopStream(stream->handle), R::Success);
    ASSERT_EQ(sdk->sdkSetWidth(camera, 40), R::Success);
    ASSERT_EQ(sdk->sdkSetHeight(camera, 30), R::Success);
    ASSERT_EQ(sdk->sdkStartStream(stream->handle, 8), R::Success);
    gige::pulseTriggerLine(1);
    takePatternImage(40, 30);
}

}  // namespace
}  // namespace Tavri
