#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include <opencv2/core.hpp>

#include "TavriAPI/ImageType.h"

namespace TeliGrab::View {

// One frame as the camera delivered it.
struct RawFrame {
    cv::Mat image;
    Tavri::ImageType mode = Tavri::ImageType::Gray;
    std::uint64_t stamp = 0;  // the camera loop's frame number
};

struct EncoderCounters {
    std::uint64_t encoded = 0;
    double encodeSeconds = 0.0;  // total time spent turning frames into JPEG views
};

// Hands the newest frame from the camera thread to the viewers. Each viewer encodes
// the part and size of the image it shows, so a viewer of a small window neither
// waits for nor receives a full-size JPEG; a slow viewer skips frames, never delays
// the camera.
class FrameHub {
public:
    // Copies the frame; called by the camera thread.
    void submit(const cv::Mat& image, Tavri::ImageType mode, std::uint64_t stamp);

    // The newest frame if newer than `after`, waiting at most `wait`; null when none came
    // or the hub stopped.
    std::shared_ptr<const RawFrame> next(std::uint64_t after, std::chrono::milliseconds wait);
    std::shared_ptr<const RawFrame> latest() const;

    void setMarkSaturated(bool mark) { markSaturated_ = mark; }
    bool marksSaturated() const { return markSaturated_; }

    void countEncoded(double seconds);
    EncoderCounters counters() const;

    // Wakes every waiting viewer; later waits return at once.
    void stop();
    bool stopped() const;

private:
    std::atomic<bool> markSaturated_{false};
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::shared_ptr<const RawFrame> latest_;
    EncoderCounters counters_;
    bool stopping_ = false;
};

}  // namespace TeliGrab::View
