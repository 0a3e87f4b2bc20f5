// When a projector pulses: the arming of the cameras it drives.

#include "sdk/sim/SimProjector.h"

#include <algorithm>

namespace Tavri::sim {

void Projector::streamOpened(std::size_t camera) {
    std::lock_guard<std::mutex> lock(mutex_);
    open_.insert(camera);
}

void Projector::streamClosed(std::size_t camera) {
    std::lock_guard<std::mutex> lock(mutex_);
    open_.erase(camera);
    stopListening(camera);
}

bool Projector::armed(std::size_t camera, Clock::time_point when) {
    std::lock_guard<std::mutex> lock(mutex_);
    acquiring_.insert(camera);
    if (run_) return false;
    // The host starts the projector once every camera with an open stream listens.
    const bool everyOneArmed = std::includes(acquiring_.begin(), acquiring_.end(), open_.begin(), open_.end());
    if (!freeRunning_ && !everyOneArmed) return false;
    run_ = Run{++runs_, when};
    return true;
}

void Projector::disarmed(std::size_t camera) {
    std::lock_guard<std::mutex> lock(mutex_);
    stopListening(camera);
}

void Projector::stopListening(std::size_t camera) {
    acquiring_.erase(camera);
    if (!freeRunning_ && acquiring_.empty()) run_.reset();
}

std::optional<Projector::Run> Projector::run() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return run_;
}

std::optional<Projector::Pulse> Projector::nextPulse(Listener& listener, Clock::duration period) const {
    const auto now = run();
    if (!now) return std::nullopt;
    if (listener.run != now->number) {
        listener.run = now->number;
        // Pulse k rises at origin + (k + 1) periods: the first after `since` is the
        // whole number of periods from the origin to `since`.
        const auto periods = listener.since <= now->origin ? 0 : (listener.since - now->origin) / period;
        listener.next = static_cast<std::uint32_t>(std::min<std::int64_t>(periods, 0xFFFFFFFF));
    }
    return Pulse{listener.next, now->origin + (static_cast<std::int64_t>(listener.next) + 1) * period};
}

}  // namespace Tavri::sim
