#pragma once

#include <chrono>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "TavriAPI/CameraDriver.h"
#include "Timeout.h"

namespace TeliGrab {

// getNextImage in short slices, so that a deadline, a signal or a lost camera ends the
// wait promptly whatever the timeout. Needs continuous grabbing started.
//
// With the software trigger selected the driver sends a trigger on each call, so a
// slice that expires before the camera answers sends one more; the extra image is taken
// by the next wait.
class ImageWaiter {
public:
    using Clock = std::chrono::steady_clock;
    enum class Result { Image, Deadline, Failed };

    ImageWaiter(Tavri::CameraDriver& camera, const Timeout& timeout);

    // Image: `frame` holds the next image. Deadline: `deadline` passed first. Failed:
    // the timeout passed or the driver failed otherwise; cause() says which. A signal
    // throws ToolError(Interrupted/Terminated); a camera that isConnected() reports lost
    // throws ToolError(CameraDisconnected) naming `framesSoFar`.
    Result next(cv::Mat& frame, Clock::time_point deadline, long framesSoFar);
    const std::string& cause() const { return cause_; }
    // For a failure that was a timeout before any image: what the user can do about it,
    // or empty. Once an image came, the trigger reaches the camera: advice to let it
    // run free would send the user the wrong way.
    std::string advice() const { return timedOut_ && framesSoFar_ == 0 ? hint_ : std::string(); }

    static constexpr std::chrono::milliseconds kSlice{200};

private:
    Tavri::CameraDriver& camera_;
    std::optional<int> timeoutMs_;
    std::string timeoutCause_;
    std::string hint_;
    std::string cause_;
    bool timedOut_ = false;
    long framesSoFar_ = 0;
};

}  // namespace TeliGrab
