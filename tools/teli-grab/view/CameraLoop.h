#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "TavriAPI/CameraDriver.h"
#include "view/FrameHub.h"
#include "view/TaskQueue.h"

namespace TeliGrab::View {

struct CameraStats {
    std::uint64_t frames = 0;    // also the stamp of the newest frame
    std::uint64_t failures = 0;  // failed images and stream starts, and stretches without images
    // Frames the camera numbered that never arrived (0 while its numbers are unknown).
    std::uint64_t missing = 0;
    std::string lastFailure;
    double framesPerSecond = 0.0;  // over the last second or so
};

// Runs on the thread that opened the camera and is the only caller of the driver:
// grabs continuously, hands every frame to the viewers, and between two images runs
// the work posted to the queue with acquisition stopped, since a colour-mode change
// alters the frames and a sequence or a still needs the stream for itself.
class CameraLoop {
public:
    CameraLoop(Tavri::CameraDriver& camera, TaskQueue& tasks, FrameHub& hub);

    // Returns when `stopRequested` says so (it is asked at least every `kWaitMs`),
    // with acquisition stopped and the queue closed.
    void run(const std::function<bool()>& stopRequested);

    CameraStats stats() const;

    static constexpr int kWaitMs = 250;

private:
    void countFailure(const std::string& text);

    Tavri::CameraDriver& camera_;
    TaskQueue& tasks_;
    FrameHub& hub_;
    mutable std::mutex mutex_;
    CameraStats stats_;
};

}  // namespace TeliGrab::View
