#pragma once
// Shared helpers of the rig's tests: small rigs and one camera opened through the
// TeliSdk interface with its event, stream and requests over one block.

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

struct Taken {
    Result result = 0;
    RequestHandle request = nullptr;
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
};

class OpenCamera {
public:
    OpenCamera(TeliSdk& sdk, std::uint32_t index, std::size_t requestCount, std::uint32_t bufferSize = 0)
        : sdk(sdk), event(platform::createEvent()) {
        EXPECT_EQ(sdk.sdkOpenCamera(index, &camera, nullptr, true, nullptr, 1), 0u);
        EXPECT_EQ(sdk.sdkOpenStream(camera, event, &payload, &stream, 0), 0u);
        EXPECT_EQ(sdk.sdkGetWidth(camera, &width), 0u);
        EXPECT_EQ(sdk.sdkGetHeight(camera, &height), 0u);
        size = bufferSize ? bufferSize : payload;
        block.assign(size * requestCount, 0);
        for (std::size_t i = 0; i < requestCount; ++i) {
            RequestHandle request = nullptr;
            EXPECT_EQ(sdk.sdkCreateRequest(stream, block.data() + i * size, size, &request), 0u);
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
    std::uint32_t payload = 0;
    std::uint32_t size = 0;
    std::uint32_t format = PixelFormat::Mono8;  // of the images stamp() reads
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> block;
    std::vector<RequestHandle> requests;
};

}  // namespace Tavri::sim::test
