#pragma once
// What a backend knows of the frame behind a request it has just handed out: an
// optional interface of our own beside TeliSdk, not an operation of it, so the vendor
// DLL's table stays as it is. A backend that implements it (simulator, Aravis) is
// found with dynamic_cast; without it the driver knows only its own host times.

#include <chrono>
#include <cstdint>

#include "sdk/TeliSdk.h"

namespace Tavri {

// The host's steady clock in ns: the one clock of host and capture times.
inline std::uint64_t steadyNowNs() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

struct FrameInfo {
    static constexpr std::uint64_t kUnknown = ~std::uint64_t{0};
    static constexpr std::uint32_t kNoPulse = ~std::uint32_t{0};

    // The camera's frame number, as the camera counts it. `frameIdWrap`, when not 0, is
    // the largest number before the count starts again at `frameIdFirst` (GigE Vision's
    // 16-bit block id runs 1 ... 65535, then 1 again).
    std::uint64_t frameNumber = kUnknown;
    std::uint64_t frameIdWrap = 0;
    std::uint64_t frameIdFirst = 0;
    // When the camera captured it, on the camera's clock.
    std::uint64_t cameraTimeNs = kUnknown;
    // The same moment on the host's steady clock (ns since its epoch), where the backend
    // can tell it: the only time that compares with the acquisition start.
    std::uint64_t captureSteadyNs = kUnknown;
    // The simulated rig's ground truth: the projector pulse and pattern the frame saw.
    std::uint32_t pulse = kNoPulse;
    std::uint32_t pattern = kNoPulse;
    // 0 for a complete frame, else the backend's status, named by `statusText` (a
    // string with static storage: recording allocates nothing).
    std::uint32_t status = 0;
    const char* statusText = "";
};

class FrameInfoSource {
public:
    virtual ~FrameInfoSource() = default;
    // Fills `info` for `request`, which the last take on `stream` handed out (a failed
    // take included). Returns false when the backend knows nothing of it.
    virtual bool frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) = 0;
};

}  // namespace Tavri
