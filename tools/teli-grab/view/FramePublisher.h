#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "view/FrameAnalysis.h"

namespace TeliGrab::View {

// One encoded frame as every viewer receives it.
struct EncodedFrame {
    std::uint64_t stamp = 0;  // the camera loop's frame number
    std::shared_ptr<const std::vector<unsigned char>> jpeg;
    FrameAnalysis analysis;
    int width = 0;
    int height = 0;
};

struct EncoderCounters {
    std::uint64_t submitted = 0;
    std::uint64_t encoded = 0;
    double encodeSeconds = 0.0;  // total time spent converting, analysing and encoding
};

// Encodes frames on a thread of its own, so the camera thread only copies them. A frame
// that arrives while the previous one is still waiting replaces it: viewers get the
// newest image rather than a growing delay.
class FramePublisher {
public:
    explicit FramePublisher(int jpegQuality);
    ~FramePublisher();
    FramePublisher(const FramePublisher&) = delete;
    FramePublisher& operator=(const FramePublisher&) = delete;

    void submit(const cv::Mat& frame, Tavri::ImageType mode, std::uint64_t stamp);

    // The first frame newer than `after`, waiting at most `wait`; nothing when none came
    // or the publisher stopped.
    std::optional<EncodedFrame> next(std::uint64_t after, std::chrono::milliseconds wait);
    std::optional<EncodedFrame> latest() const;

    void setMarkSaturated(bool mark) { markSaturated_ = mark; }
    bool marksSaturated() const { return markSaturated_; }
    EncoderCounters counters() const;

    // Ends the encoder thread and wakes every waiting viewer.
    void stop();
    bool stopped() const;

private:
    void encodeLoop();

    const int quality_;
    std::atomic<bool> markSaturated_{false};

    mutable std::mutex mutex_;
    std::condition_variable pendingChanged_;
    std::condition_variable published_;
    cv::Mat pending_;
    Tavri::ImageType pendingMode_ = Tavri::ImageType::Gray;
    std::uint64_t pendingStamp_ = 0;
    bool hasPending_ = false;
    bool stopping_ = false;
    std::optional<EncodedFrame> latest_;
    EncoderCounters counters_;

    std::thread encoder_;
};

}  // namespace TeliGrab::View
