#pragma once
// A camera on a 10GigE link over the simulated rig in benchmark mode, for driver_bench.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/Platform.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::bench {

using Clock = std::chrono::steady_clock;

// A camera on a 10GigE link. Benchmark mode fills every queued request at the start;
// this hands them to the driver one per link period instead: it keeps the driver's
// event for itself, signals it as each image completes, and again after a take that
// leaves completed images (the completion-event rule). One stream at a time.
class PacedSdk : public sim::SimSdk {
public:
    PacedSdk(sim::RigConfig rig, std::chrono::nanoseconds period) : SimSdk(std::move(rig)), period(period) {}
    ~PacedSdk() override { stopPacer(); }

    Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                         std::uint32_t reserved) override {
        driverEvent = event;
        simEvent = platform::createEvent();
        return SimSdk::sdkOpenStream(camera, simEvent, payloadSize, stream, reserved);
    }
    Result sdkCloseStream(StreamHandle stream) override {
        const Result result = SimSdk::sdkCloseStream(stream);
        platform::closeEvent(simEvent);
        return result;
    }
    Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) override {
        ++queued;
        return SimSdk::sdkEnqueueRequest(stream, request);
    }
    Result sdkStartStream(StreamHandle stream, std::uint32_t mode) override {
        const Result result = SimSdk::sdkStartStream(stream, mode);
        if (result != SdkResult::Success) return result;
        std::lock_guard<std::mutex> lock(mutex);
        pacing = true;
        released = taken = 0;
        start = Clock::now();
        pacer = std::thread([this, count = queued] { pace(count); });
        queued = 0;
        return result;
    }
    Result sdkStopStream(StreamHandle stream) override {
        stopPacer();
        return SimSdk::sdkStopStream(stream);
    }
    Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                   std::uint32_t* size) override {
        const Result result = SimSdk::sdkTakeCompletedRequest(stream, request, buffer, size);
        std::lock_guard<std::mutex> lock(mutex);
        if (pacing && result == SdkResult::Success && ++taken < released) platform::setEvent(driverEvent);
        return result;
    }

    // Read after a stop: when acquisition started and when its last image completed.
    Clock::time_point started() const { return start; }
    Clock::time_point lastCompleted() const { return last; }

private:
    void pace(int count) {
        std::unique_lock<std::mutex> lock(mutex);
        for (int k = 1; k <= count; ++k) {
            if (wake.wait_until(lock, start + k * period, [this] { return !pacing; })) return;
            ++released;
            last = Clock::now();
            platform::setEvent(driverEvent);
        }
    }
    void stopPacer() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            pacing = false;
        }
        wake.notify_all();
        if (pacer.joinable()) pacer.join();
    }

    const std::chrono::nanoseconds period;
    EventHandle driverEvent = nullptr, simEvent = nullptr;
    int queued = 0;
    std::mutex mutex;
    std::condition_variable wake;
    std::thread pacer;
    bool pacing = false;
    int released = 0, taken = 0;
    Clock::time_point start, last;
};

}  // namespace Tavri::bench
