#include "ImageWaiter.h"

#include <algorithm>

#include "CameraChecks.h"
#include "Interrupt.h"
#include "SetReport.h"

namespace TeliGrab {

ImageWaiter::ImageWaiter(Tavri::CameraDriver& camera, const Timeout& timeout)
    : camera_(camera),
      timeoutMs_(timeout.milliseconds()),
      timeoutCause_("no image within " + timeout.describe()),
      hint_(triggerHint(camera)) {}

ImageWaiter::Result ImageWaiter::next(cv::Mat& frame, Clock::time_point deadline, long framesSoFar) {
    using std::chrono::milliseconds;
    const auto start = Clock::now();
    const auto limit = timeoutMs_ ? start + milliseconds(*timeoutMs_) : Clock::time_point::max();
    framesSoFar_ = framesSoFar;
    for (;;) {
        throwIfInterrupted();
        const auto now = Clock::now();
        if (now >= deadline) return Result::Deadline;
        if (now >= limit) {
            cause_ = timeoutCause_;
            timedOut_ = true;
            return Result::Failed;
        }
        const auto slice = std::max(
            milliseconds(1), std::min({kSlice, std::chrono::duration_cast<milliseconds>(deadline - now),
                                       std::chrono::duration_cast<milliseconds>(limit - now)}));
        std::string failure;
        try {
            camera_.getNextImage(frame, static_cast<int>(slice.count()));
            return Result::Image;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        // A lost camera shows as images that stop coming, so every failed slice asks.
        throwIfDisconnected(camera_, framesSoFar);
        if (failure != ImageWaitFailed) {
            // A frame the camera sent but the link did not bring whole: the backend names
            // its status, which tells more than the driver's text.
            const auto& record = recordSource(camera_).lastImageRecord();
            cause_ = record.status != 0 && *record.statusText ? std::string("incomplete frame (") + record.statusText + ")"
                                                              : failure;
            timedOut_ = false;
            return Result::Failed;
        }
    }
}

}  // namespace TeliGrab
