#pragma once
// A camera's stream: its requests and their queues, the completion event, the one
// function that fills a frame into a request, and where frames come from while
// acquisition runs: a FrameSource, the producer thread or benchmark mode's instant
// fill, chosen once per camera. Internal to the simulator.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "sdk/CompletionEvent.h"
#include "sdk/sim/SimDevice.h"
#include "sdk/sim/SimFrameSource.h"

namespace Tavri::sim {

using Clock = std::chrono::steady_clock;

struct RequestObj : HandleObj {
    enum class State { Held, Waiting, InFlight, Completed };
    RequestObj(std::shared_ptr<Device> device, StreamObj* stream, std::uint8_t* buffer, std::uint32_t size)
        : HandleObj(std::move(device)), stream(stream), buffer(buffer), size(size) {}
    StreamObj* const stream;
    std::uint8_t* const buffer;
    const std::uint32_t size;
    State state = State::Held;
    std::uint32_t bytes = 0;
    bool tooLarge = false;
    // The frame in the buffer: its number as the camera reports it, capture time on the
    // steady clock (unknown in benchmark mode) and the pulse it answered.
    std::uint64_t frameId = 0;
    std::uint64_t captureNs = ~std::uint64_t{0};
    std::uint32_t pulse = kNoPattern;
};

// What triggers frames: the trigger features' combination.
enum class Source { Software, Line, FreeRun };

struct InFlight {
    RequestObj* request;
    Clock::time_point due;
    bool ready = false;  // filled
    bool held = false;   // part of a burst still being gathered
};

struct StreamObj : HandleObj {
    StreamObj(std::shared_ptr<Device> device, EventHandle event) : HandleObj(std::move(device)), event(event) {}
    const CompletionEvent event;
    std::vector<RequestObj*> requests;  // created and not released
    std::deque<RequestObj*> waiting;
    std::deque<RequestObj*> completed;
    std::deque<InFlight> inFlight;
    // Told when a frame in flight has been filled (flush waits for one being drawn).
    std::condition_variable filled;
    // Acquisition
    bool acquiring = false;
    std::uint32_t frame = 0;  // number of the next frame
    Projector::Listener line;  // where the camera stands in the projector's pulses
    std::optional<Source> source;  // what triggered the last scheduling round
    Clock::time_point nextFreeRun, lastDue;
    std::uint32_t pendingSoftware = 0;
    std::uint32_t burstHeld = 0;
    std::uint32_t burstLast = 0;  // the last frame of the group being held
    std::uint64_t idBase = 0;      // the reported number of frame 0 of this acquisition
    std::uint32_t startIndex = 0;  // which acquisition start of the camera this is
    Clock::time_point started;
    // The frame of the last take, kept as it was: a failed take's request goes back
    // to the wait queue and may be refilled before its frame is asked for.
    const RequestObj* lastTaken = nullptr;
    std::uint64_t lastTakenId = 0, lastTakenCaptureNs = 0;
    std::uint32_t lastTakenPulse = kNoPattern;
    bool lastTakenFailed = false;
};

// Here rather than with the device: whether it acquires is the stream's to say.
inline bool Device::acquiring() const { return stream && stream->acquiring; }

// Sizes frame `frame` for `request` (an oversize fault makes it fail: nothing written)
// and writes it: rendered whole with `lock` released, when a lock is given, or else its
// stamp alone (benchmark mode). Returns false for a failed frame.
bool fillFrame(Device& d, RequestObj& request, std::uint32_t frame, std::uint32_t pattern,
               std::unique_lock<std::mutex>* lock);
// The number the camera reports for frame `frame` of the running acquisition.
std::uint64_t frameIdOf(const Device& d, const StreamObj& s, std::uint64_t frame);
// Hands `request` to the completed queue and signals the event.
void complete(Device& d, StreamObj& s, RequestObj* request);

// Start (a start while running restarts) and stop of acquisition; stopping delivers
// frames in flight. The device's control and device mutex are held.
// A start returns true when it started the projector: the caller wakes the other
// cameras that projector drives, holding no device's mutex.
bool startAcquisition(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock);
void stopAcquisition(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock);
// Queues a request the driver holds (enqueue, and a failed take while acquiring).
void queueRequest(Device& d, StreamObj& s, RequestObj& request);

}  // namespace Tavri::sim
