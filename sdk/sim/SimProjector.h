#pragma once
// The projector whose pulses trigger cameras' lines. One may drive several cameras
// (a stereo rig): it then starts as a scanner's host starts it, after it armed every
// camera, or free-runs. A camera no projector of the rig file drives has one of its
// own. Internal to the simulator.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>

namespace Tavri::sim {

class Projector {
public:
    using Clock = std::chrono::steady_clock;

    // One stretch of pulsing: pulse k rises at origin + (k + 1) periods.
    struct Run {
        std::uint64_t number = 0;  // a new number for each start
        Clock::time_point origin;
    };

    // `freeRunning`: it starts at the first camera's acquisition start and never stops;
    // else it starts when the last camera with an open stream starts acquisition, and
    // stops when none acquires any more.
    explicit Projector(bool freeRunning) : freeRunning_(freeRunning) {}

    void streamOpened(std::size_t camera);
    void streamClosed(std::size_t camera);
    // Camera `camera` started acquisition at `when`; true when that started the projector
    // (the caller wakes the other cameras it drives).
    bool armed(std::size_t camera, Clock::time_point when);
    void disarmed(std::size_t camera);
    std::optional<Run> run() const;

    // Where one camera stands in the pulses: it listens from `since` on, and `next` is
    // the number of its next pulse in run `run` (0: none yet).
    struct Listener {
        Clock::time_point since;
        std::uint64_t run = 0;
        std::uint32_t next = 0;
    };
    struct Pulse {
        std::uint32_t number;
        Clock::time_point rising;
    };
    // The listener's next pulse (the first after `since` in a run it has not seen yet),
    // or none while the projector is dark.
    std::optional<Pulse> nextPulse(Listener& listener, Clock::duration period) const;

private:
    // With mutex_ held: `camera` no longer acquires; a hosted projector goes dark when
    // none does.
    void stopListening(std::size_t camera);

    const bool freeRunning_;
    mutable std::mutex mutex_;  // taken inside a device's mutex, never the other way
    std::set<std::size_t> open_, acquiring_;
    std::optional<Run> run_;
    std::uint64_t runs_ = 0;
};

}  // namespace Tavri::sim
