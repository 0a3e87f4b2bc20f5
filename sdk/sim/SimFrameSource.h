#pragma once
// Where a camera's frames come from while acquisition runs: the producer thread or
// benchmark mode's instant fill (sdk/sim/SimStream.cpp). A device owns one; this
// header lets it do so without knowing the stream. Internal to the simulator.

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

namespace Tavri::sim {

struct Device;
struct StreamObj;
struct RequestObj;

class FrameSource {
public:
    virtual ~FrameSource() = default;
    // Acquisition starts on `s` (the device's mutex held, the counters reset).
    virtual void start(Device& d, StreamObj& s) = 0;
    // Acquisition stops: returns once no frame is being made; may release `lock`
    // meanwhile (the device's control mutex keeps other starts and stops out).
    virtual void stop(StreamObj& s, std::unique_lock<std::mutex>& lock) = 0;
    // A request joined the wait queue while acquiring.
    virtual void queued(Device& d, StreamObj& s, RequestObj& request) = 0;
    // A software trigger while acquiring with the software source.
    virtual void softwareTrigger(StreamObj& s) = 0;
    // The trigger set-up or the camera's condition changed.
    virtual void rescheduled() = 0;
};

// The producer thread (`render`), or benchmark mode's instant fill. `threads` counts
// the producer threads alive.
std::unique_ptr<FrameSource> makeFrameSource(bool render, std::atomic<std::size_t>& threads);

}  // namespace Tavri::sim
