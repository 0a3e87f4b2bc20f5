#include "view/CameraLoop.h"

#include <chrono>
#include <optional>
#include <thread>

#include "CameraChecks.h"
#include "ContinuousGrab.h"
#include "SetReport.h"

namespace TeliGrab::View {

namespace {

using Clock = std::chrono::steady_clock;

// The loop waits in short steps to stay responsive, so with a slow external trigger
// most waits run out without any fault: only a stretch of kStall without an image
// counts as a failure.
constexpr auto kStall = std::chrono::seconds(2);

// Frames per second over windows of about one second.
class RateMeter {
public:
    std::optional<double> count() {
        ++frames_;
        const auto now = Clock::now();
        const std::chrono::duration<double> elapsed = now - start_;
        if (elapsed.count() < 1.0) return std::nullopt;
        const double rate = frames_ / elapsed.count();
        frames_ = 0;
        start_ = now;
        return rate;
    }
    void restart() {
        frames_ = 0;
        start_ = Clock::now();
    }

private:
    int frames_ = 0;
    Clock::time_point start_ = Clock::now();
};

}  // namespace

CameraLoop::CameraLoop(Tavri::CameraDriver& camera, TaskQueue& tasks, FrameHub& hub)
    : camera_(camera), tasks_(tasks), hub_(hub) {}

void CameraLoop::run(const std::function<bool()>& stopRequested) {
    std::optional<ContinuousGrab> grab;
    cv::Mat frame;
    Tavri::ImageType mode = Tavri::ImageType::Gray;
    RateMeter meter;
    const auto& records = recordSource(camera_);
    std::optional<Tavri::ImageRecord> previous;
    auto lastProgress = Clock::now();  // the last image, stream start or counted failure
    while (!stopRequested()) {
        if (tasks_.hasWork()) {
            grab.reset();
            tasks_.runAll(camera_);
            continue;
        }
        if (!grab) {
            try {
                // Size and type are read anew: a task may have changed the colour mode.
                frame = ContinuousGrab::frameFor(camera_);
                mode = camera_.getMode();
                grab.emplace(camera_);
                previous.reset();
                meter.restart();
                lastProgress = Clock::now();
            } catch (const std::exception& error) {
                countFailure(error.what());
                std::this_thread::sleep_for(std::chrono::milliseconds(kWaitMs));
                continue;
            }
        }
        try {
            camera_.getNextImage(frame, kWaitMs);
        } catch (const std::exception& error) {
            if (error.what() == std::string(ImageWaitFailed) && Clock::now() - lastProgress < kStall) continue;
            lastProgress = Clock::now();
            countFailure(error.what());
            continue;
        }
        lastProgress = Clock::now();
        const Tavri::ImageRecord& record = records.lastImageRecord();
        if (const auto wrong = wrongSizeText(record, mode, frame); !wrong.empty()) {
            countFailure(wrong);  // never shown as the mode's image
            continue;
        }
        std::uint64_t stamp;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stamp = ++stats_.frames;
            if (previous) stats_.missing += framesMissedBetween(*previous, record);
            if (const auto rate = meter.count()) stats_.framesPerSecond = *rate;
        }
        previous = record;
        hub_.submit(frame, mode, stamp);
    }
    grab.reset();
    tasks_.close();
}

CameraStats CameraLoop::stats() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stats_;
}

void CameraLoop::countFailure(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++stats_.failures;
    stats_.lastFailure = text;
    stats_.framesPerSecond = 0.0;  // no longer true of a camera that stopped delivering
}

}  // namespace TeliGrab::View
