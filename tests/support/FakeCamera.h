#pragma once
// A camera behind MockTeliSdk: default actions keep the state a real SDK keeps
// (cameras, stream, wait and completed queues, stored feature values), so tests can
// add ordered expectations on top, inject failures by operation, and complete
// requests from a thread of their own as a camera does.

#include <gmock/gmock.h>

#include <array>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sdk/CompletionEvent.h"
#include "tests/support/MockTeliSdk.h"

namespace Tavri::testing {

struct FakeCameraInfo {
    std::string vendor = "Toshiba Teli";
    std::string model = "BU1203MC";
    std::string serial;
};

class FakeCamera : public ::testing::NiceMock<MockTeliSdk> {
public:
    // Sensor and image size; the payload is width x height x 3, the largest format.
    explicit FakeCamera(std::vector<FakeCameraInfo> cameras = {{"Toshiba Teli", "BU1203MC", "CAM0"}},
                        std::uint32_t width = 8, std::uint32_t height = 4);

    // Makes `operation` return `code`: on every call when `onCall` is 0, otherwise
    // only on its onCall-th call (counted from 1).
    void fail(Operation operation, Result code, int onCall = 0);
    void heal(Operation operation);
    std::array<int, kOperationCount> callCounts() const;
    int calls(Operation operation) const;

    // Moves up to `count` waiting requests to the completed side, each filled with
    // `fill` and reporting `size` bytes (-1: the payload size), signalling the event
    // for each. Returns how many were completed.
    int complete(int count = 1, std::uint8_t fill = 0x5A, std::int64_t size = -1);
    std::size_t waiting() const;
    std::size_t completed() const;

    // What the driver holds in the SDK right now.
    int openCameras() const;
    int openStreams() const;
    int liveRequests() const;
    std::uint32_t payload() const { return width_ * height_ * 3; }

    // Values the camera stores differ from those requested where the camera rounds.
    double balanceStep = 0.0;  // e.g. 1.0/64: ratios stored on that grid
    bool triggerMode = false;
    std::uint32_t activation = 0;
    std::uint32_t pixelFormat = 0;
    double exposure = 0.0, gain = 0.0, blackLevel = 0.0, red = 0.0, blue = 0.0;
    // A software trigger completes one waiting request, as a camera in software
    // trigger mode does.
    bool completeOnSoftwareTrigger = false;

private:
    bool faulted(Operation operation, Result& code);
    // Completes one waiting request; the caller holds the lock and signals `event_`.
    bool completeLocked(std::uint8_t fill, std::int64_t size);
    void installDefaults();

    std::vector<FakeCameraInfo> cameras_;
    std::uint32_t width_, height_;
    mutable std::mutex mutex_;
    std::array<std::optional<std::pair<Result, int>>, kOperationCount> faults_{};
    std::array<int, kOperationCount> calls_{};
    std::map<RequestHandle, std::uint8_t*> requestBuffers_;
    std::map<RequestHandle, std::uint32_t> completedSizes_;
    std::deque<RequestHandle> waiting_, completed_;
    CompletionEvent event_;
    int openCameras_ = 0, openStreams_ = 0;
    int streamToken_ = 0;
    std::vector<int> requestTokens_;
};

}  // namespace Tavri::testing
