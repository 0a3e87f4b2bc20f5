#include "view/FramePublisher.h"

namespace TeliGrab::View {

FramePublisher::FramePublisher(int jpegQuality) : quality_(jpegQuality), encoder_([this] { encodeLoop(); }) {}

FramePublisher::~FramePublisher() {
    stop();
    encoder_.join();
}

void FramePublisher::submit(const cv::Mat& frame, Tavri::ImageType mode, std::uint64_t stamp) {
    std::lock_guard<std::mutex> lock(mutex_);
    // copyTo reuses pending_'s memory while the size and type stay the same.
    frame.copyTo(pending_);
    pendingMode_ = mode;
    pendingStamp_ = stamp;
    hasPending_ = true;
    ++counters_.submitted;
    pendingChanged_.notify_one();
}

std::optional<EncodedFrame> FramePublisher::next(std::uint64_t after, std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> lock(mutex_);
    published_.wait_for(lock, wait, [&] { return stopping_ || (latest_ && latest_->stamp > after); });
    if (stopping_ || !latest_ || latest_->stamp <= after) return std::nullopt;
    return latest_;
}

std::optional<EncodedFrame> FramePublisher::latest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
}

EncoderCounters FramePublisher::counters() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return counters_;
}

void FramePublisher::stop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    pendingChanged_.notify_all();
    published_.notify_all();
}

bool FramePublisher::stopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopping_;
}

void FramePublisher::encodeLoop() {
    cv::Mat working;
    for (;;) {
        Tavri::ImageType mode;
        std::uint64_t stamp;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            pendingChanged_.wait(lock, [&] { return stopping_ || hasPending_; });
            if (stopping_) return;
            cv::swap(working, pending_);
            mode = pendingMode_;
            stamp = pendingStamp_;
            hasPending_ = false;
        }
        const auto start = std::chrono::steady_clock::now();
        EncodedFrame frame;
        frame.stamp = stamp;
        frame.analysis = analyse(working);
        frame.jpeg = std::make_shared<const std::vector<unsigned char>>(
            encodeJpeg(previewOf(working, mode, markSaturated_), quality_));
        frame.width = working.cols;
        frame.height = working.rows;
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;

        std::lock_guard<std::mutex> lock(mutex_);
        latest_ = std::move(frame);
        ++counters_.encoded;
        counters_.encodeSeconds += spent.count();
        published_.notify_all();
    }
}

}  // namespace TeliGrab::View
