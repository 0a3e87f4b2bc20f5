#pragma once
// Shared helpers of the rig's tests: a small initialised rig, and one camera opened
// through the TeliSdk interface with its event, stream and requests over one block.

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/Platform.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::sim::test {

// Two small cameras (256 x 64: quick to render), fast projector.
inline RigConfig smallRig(bool render = true) {
    RigConfig rig = defaultRig();
    for (auto& camera : rig.cameras) {
        camera.width = 256;
        camera.height = 64;
    }
    rig.projector.rate = 250.0;
    rig.frameRate = 200.0;
    rig.render = render;
    return rig;
}

// An initialised rig; Render false is benchmark mode (no producer thread). No producer
// thread may outlive a test.
template <bool Render>
class RigTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sdk.sdkInitialize(65535), 0u); }
    void TearDown() override { EXPECT_EQ(sdk.runningThreads(), 0u); }
    SimSdk sdk{smallRig(Render)};
};

struct Taken {
    Result result = 0;
    RequestHandle request = nullptr;
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
};

class OpenCamera {
public:
    OpenCamera(TeliSdk& sdk, std::uint32_t index, std::size_t requestCount)
        : sdk(sdk), event(platform::createEvent()) {
        EXPECT_EQ(sdk.sdkOpenCamera(index, &camera, nullptr, true, nullptr, 1), 0u);
        EXPECT_EQ(sdk.sdkOpenStream(camera, event, &payload, &stream, 0), 0u);
        EXPECT_EQ(sdk.sdkGetWidth(camera, &width), 0u);
        EXPECT_EQ(sdk.sdkGetHeight(camera, &height), 0u);
        block.assign(payload * requestCount, 0);
        for (std::size_t i = 0; i < requestCount; ++i) {
            RequestHandle request = nullptr;
            EXPECT_EQ(sdk.sdkCreateRequest(stream, block.data() + i * payload, payload, &request), 0u);
            requests.push_back(request);
        }
    }
    ~OpenCamera() {
        close();
        platform::closeEvent(event);
    }
    void close() {
        if (!camera) return;
        sdk.sdkStopStream(stream);
        sdk.sdkFlushWaitQueue(stream);
        Taken t;
        while (sdk.sdkTakeCompletedRequest(stream, &t.request, &t.buffer, &t.size) != SimResult::NoCompletedRequest) {
        }
        for (auto r : requests) sdk.sdkReleaseRequest(stream, r);
        sdk.sdkCloseStream(stream);
        sdk.sdkCloseCamera(camera);
        camera = nullptr;
    }
    void enqueue(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(sdk.sdkEnqueueRequest(stream, requests[i]), 0u) << i;
    }
    void start() { ASSERT_EQ(sdk.sdkStartStream(stream, 8), 0u); }
    void stop() { ASSERT_EQ(sdk.sdkStopStream(stream), 0u); }
    void hardwareTrigger() {
        ASSERT_EQ(sdk.sdkSetTriggerMode(camera, true), 0u);
        ASSERT_EQ(sdk.sdkSetTriggerSource(camera, TriggerSourceCode::Hardware), 0u);
    }
    void softwareTrigger() {
        ASSERT_EQ(sdk.sdkSetTriggerMode(camera, false), 0u);
        ASSERT_EQ(sdk.sdkSetTriggerSource(camera, TriggerSourceCode::Software), 0u);
    }
    Taken take() {
        Taken t;
        t.result = sdk.sdkTakeCompletedRequest(stream, &t.request, &t.buffer, &t.size);
        return t;
    }
    // One wait on the event, then one take: the driver's pattern.
    Taken waitAndTake(std::uint32_t timeoutMs) {
        if (platform::waitForEvent(event, timeoutMs) != 0) return Taken{0xFFFFFFFFu};
        return take();
    }
    FrameStamp stamp(const Taken& t) const {
        FrameStamp s;
        EXPECT_TRUE(readStamp(t.buffer, width, height, format, &s));
        return s;
    }

    TeliSdk& sdk;
    EventHandle event;
    CameraHandle camera = nullptr;
    StreamHandle stream = nullptr;
    std::uint32_t payload = 0;  // the size of each request's buffer
    std::uint32_t format = PixelFormat::Mono8;  // of the images stamp() reads
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> block;
    std::vector<RequestHandle> requests;
};

}  // namespace Tavri::sim::test
