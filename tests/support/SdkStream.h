#pragma once
// One open stream through the TeliSdk interface, as the driver holds it: `n` requests
// over one block with a guard zone on either side, given back in the driver's order
// (stop, flush, drain, release, close). Header-only: the contract suite runs in the
// Windows build too.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/Platform.h"
#include "sdk/TeliSdk.h"

namespace Tavri::testing {

class SdkStream {
public:
    // `requestSize` 0: the payload size the stream reports.
    SdkStream(TeliSdk& sdk, CameraHandle camera, int n, std::uint32_t requestSize = 0) : sdk_(sdk) {
        EXPECT_EQ(sdk_.sdkOpenStream(camera, event_, &payload, &handle, 0), SdkResult::Success);
        size = requestSize ? requestSize : payload;
        block_.assign(std::size_t{size} * n + 2 * kGuard, kCanary);
        requests.resize(n);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(sdk_.sdkCreateRequest(handle, buffer(i), size, &requests[i]), SdkResult::Success);
    }
    ~SdkStream() {
        sdk_.sdkStopStream(handle);
        sdk_.sdkFlushWaitQueue(handle);
        while (take() != SdkResult::NoCompletedRequest) {
        }
        for (RequestHandle request : requests) EXPECT_EQ(sdk_.sdkReleaseRequest(handle, request), SdkResult::Success);
        EXPECT_EQ(sdk_.sdkCloseStream(handle), SdkResult::Success);
        platform::closeEvent(event_);
    }
    SdkStream(const SdkStream&) = delete;
    SdkStream& operator=(const SdkStream&) = delete;

    std::uint8_t* buffer(int i) { return block_.data() + kGuard + std::size_t{size} * i; }
    // No frame wrote before the first buffer or past the last.
    bool guardsIntact() const {
        const auto intact = [](auto begin, auto end) {
            return std::all_of(begin, end, [](std::uint8_t b) { return b == kCanary; });
        };
        return intact(block_.begin(), block_.begin() + kGuard) && intact(block_.end() - kGuard, block_.end());
    }
    bool waitImage(std::uint32_t ms = 3000) { return platform::waitForEvent(event_, ms) == 0; }
    Result take() { return sdk_.sdkTakeCompletedRequest(handle, &taken, &takenData, &takenSize); }
    Result enqueue(RequestHandle request) { return sdk_.sdkEnqueueRequest(handle, request); }
    void enqueueAll() {
        for (RequestHandle request : requests) ASSERT_EQ(enqueue(request), SdkResult::Success);
    }

    StreamHandle handle = nullptr;
    EventHandle event() const { return event_; }
    std::uint32_t payload = 0;  // as the stream reports it
    std::uint32_t size = 0;     // of each request's buffer
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

}  // namespace Tavri::testing
