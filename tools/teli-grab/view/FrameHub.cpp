#include "view/FrameHub.h"

namespace TeliGrab::View {

void FrameHub::submit(const cv::Mat& image, Tavri::ImageType mode, std::uint64_t stamp) {
    // A fresh frame each time: viewers may still be encoding the previous ones.
    auto frame = std::make_shared<RawFrame>(RawFrame{image.clone(), mode, stamp});
    std::lock_guard<std::mutex> lock(mutex_);
    latest_ = std::move(frame);
    arrived_.notify_all();
}

std::shared_ptr<const RawFrame> FrameHub::next(std::uint64_t after, std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait_for(lock, wait, [&] { return stopping_ || (latest_ && latest_->stamp > after); });
    if (stopping_ || !latest_ || latest_->stamp <= after) return nullptr;
    return latest_;
}

std::shared_ptr<const RawFrame> FrameHub::latest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
}

void FrameHub::countEncoded(double seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++counters_.encoded;
    counters_.encodeSeconds += seconds;
}

EncoderCounters FrameHub::counters() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return counters_;
}

void FrameHub::stop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    arrived_.notify_all();
}

bool FrameHub::stopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopping_;
}

}  // namespace TeliGrab::View
