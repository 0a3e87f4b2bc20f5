// The stream's frames: the one fill function, completions and the two frame sources.

#include "sdk/sim/SimStream.h"

#include <algorithm>
#include <condition_variable>
#include <thread>

#include "sdk/sim/SimFaults.h"
#include "sdk/sim/SimImpl.h"

namespace Tavri::sim {

bool fillFrame(Device& d, RequestObj& request, std::uint32_t frame, std::uint32_t pattern,
               std::unique_lock<std::mutex>* lock) {
    const FrameSettings settings = d.settings();
    std::uint64_t bytes = settings.imageBytes();
    if (const auto* oversize = frameFault(d.frameFaults, frame, FrameFault::Kind::Oversize))
        bytes = static_cast<std::uint64_t>(request.size) + oversize->extraBytes;
    request.tooLarge = bytes > request.size;
    request.bytes = request.tooLarge ? 0 : static_cast<std::uint32_t>(bytes);
    if (request.tooLarge) return false;
    if (!lock || !d.drawScene) {
        detail::writeStamp(settings, frame, pattern, request.buffer);
        return true;
    }
    // The request is in flight: nobody else touches its buffer, flush and release leave
    // it alone, and close joins the producer first.
    lock->unlock();
    detail::renderInto(d.scene(), d.projector, settings, frame, pattern, request.buffer);
    lock->lock();
    return true;
}

std::uint64_t frameIdOf(const Device& d, const StreamObj& s, std::uint64_t frame) {
    const std::uint64_t id = s.idBase + frame;
    return d.config.frameIds == FrameIds::Wrap16 ? (id - 1) % kWrap16Last + 1 : id;
}

void complete(Device& d, StreamObj& s, RequestObj* request) {
    request->state = RequestObj::State::Completed;
    s.completed.push_back(request);
    if (request->tooLarge)
        ++d.stats.failed;
    else
        ++d.stats.completed;
    s.event.completed();
}

void queueRequest(Device& d, StreamObj& s, RequestObj& request) {
    request.state = RequestObj::State::Waiting;
    s.waiting.push_back(&request);
    if (s.acquiring) d.frames->queued(d, s, request);
}

bool startAcquisition(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
    if (s.acquiring) stopAcquisition(d, s, lock);  // a start while running restarts
    s.acquiring = true;
    s.frame = 0;
    s.line = {};
    s.pendingSoftware = 0;
    s.burstHeld = 0;
    s.source.reset();
    s.lastDue = s.started = Clock::now();
    if (d.nextFrameId == 0) d.nextFrameId = d.config.frameIds == FrameIds::Wrap16 ? kWrap16Start : 1;
    s.idBase = d.config.frameIds == FrameIds::Restart ? 1 : d.nextFrameId;
    s.startIndex = d.starts++;
    const bool lit = d.line->armed(d.index, s.started);
    d.frames->start(d, s);
    return lit;
}

void stopAcquisition(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
    if (!s.acquiring) return;
    s.acquiring = false;
    d.frames->stop(s, lock);
    d.line->disarmed(d.index);
    d.nextFrameId = frameIdOf(d, s, s.frame);
    for (auto& f : s.inFlight) complete(d, s, f.request);
    s.inFlight.clear();
    s.pendingSoftware = 0;
}

namespace {

// Benchmark mode: no thread, no rendering. While acquisition runs, every waiting
// request completes at once (at start, and on enqueue) with only its stamp written, as
// a camera's DMA would have filled it.
class InstantFill final : public FrameSource {
public:
    void start(Device& d, StreamObj& s) override {
        while (!s.waiting.empty() && d.condition() == CameraCondition::Normal) fill(d, s, *s.waiting.front());
    }
    void stop(StreamObj&, std::unique_lock<std::mutex>&) override {}
    void queued(Device& d, StreamObj& s, RequestObj& request) override { fill(d, s, request); }
    void softwareTrigger(StreamObj&) override {}  // every request completes anyway
    void rescheduled() override {}

private:
    static void fill(Device& d, StreamObj& s, RequestObj& request) {
        if (d.condition() != CameraCondition::Normal) return;
        const std::uint32_t frame = s.frame++;
        ++d.stats.triggers;
        request.frameId = d.lastFrameId = frameIdOf(d, s, frame);
        request.captureNs = ~std::uint64_t{0};  // no camera clock: completions are instant
        request.pulse = kNoPattern;
        fillFrame(d, request, frame, kNoPattern, nullptr);
        const auto position = std::find(s.waiting.begin(), s.waiting.end(), &request);
        if (position != s.waiting.end()) s.waiting.erase(position);
        complete(d, s, &request);
        d.countTowardsUnplug();
    }
};

Source sourceOf(const Device& d) {
    if (d.triggerSource == TriggerSourceCode::Software) return Source::Software;
    return d.triggerMode ? Source::Line : Source::FreeRun;
}

template <typename Duration>
Clock::duration ticks(Duration duration) {
    return std::chrono::duration_cast<Clock::duration>(duration);
}

// One thread per acquiring stream: schedules frames from the trigger set-up, renders
// each into the oldest waiting request with the device's mutex released, and delivers
// them in order when due. It never sleeps without the condition variable, so a stop
// is prompt.
class ProducerThread final : public FrameSource {
public:
    explicit ProducerThread(std::atomic<std::size_t>& threads) : threads_(threads) {}
    ~ProducerThread() override {
        if (thread_.joinable()) thread_.join();
    }

    void start(Device& d, StreamObj& s) override {
        stop_ = false;
        ++threads_;
        thread_ = std::thread([this, device = d.shared_from_this(), stream = &s] {
            try {
                produce(*device, *stream);
            } catch (...) {
                // A producer that cannot go on (out of memory) simply stops producing.
            }
            --threads_;
        });
    }

    void stop(StreamObj&, std::unique_lock<std::mutex>& lock) override {
        stop_ = true;
        wake_.notify_all();
        std::thread producer = std::move(thread_);
        if (producer.joinable()) {
            lock.unlock();
            producer.join();
            lock.lock();
        }
    }

    void queued(Device&, StreamObj&, RequestObj&) override {}  // the next frame takes it

    void softwareTrigger(StreamObj& s) override {
        ++s.pendingSoftware;
        wake_.notify_all();
    }

    void rescheduled() override { wake_.notify_all(); }

private:
    static void deliverDue(Device& d, StreamObj& s, Clock::time_point now) {
        while (!s.inFlight.empty() && s.inFlight.front().ready && !s.inFlight.front().held &&
               s.inFlight.front().due <= now) {
            RequestObj* request = s.inFlight.front().request;
            s.inFlight.pop_front();
            complete(d, s, request);
        }
    }

    // The last frame of the burst group `frame` belongs to: groups are runs of `burst`
    // touched frames from the fault's first, the last one cut short by its count.
    static std::uint32_t lastOfGroup(const FrameFault& fault, std::uint32_t frame) {
        const std::uint64_t group = (frame - fault.first) / fault.every / fault.burst;
        const std::uint64_t last = std::min<std::uint64_t>((group + 1) * fault.burst, fault.count) - 1;
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(fault.first + last * fault.every, 0xFFFFFFFFu));
    }

    // Frame `frame` has been counted, captured or not: a group whose last frame it is
    // or lies behind is delivered with the frames it has, so a frame dropped or lost
    // inside it cannot hold the stream back for good.
    static void closeBurst(StreamObj& s, std::uint32_t frame) {
        if (s.burstHeld == 0 || frame < s.burstLast) return;
        for (auto& f : s.inFlight) f.held = false;
        s.burstHeld = 0;
    }

    // Takes the next frame, captured at `when` and answering pulse `pattern`, into the
    // oldest waiting request; unlocks while rendering. A stale frame is one left over
    // from before the start: it keeps the camera's last number and counts no frame.
    static void capture(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock, std::uint32_t pattern,
                        Clock::time_point when, bool stale = false) {
        const std::uint32_t frame = stale ? kNoPattern : s.frame++;
        if (!stale) ++d.stats.triggers;
        if (!stale && frameFault(d.frameFaults, frame, FrameFault::Kind::Drop)) {
            ++d.stats.dropped;
            closeBurst(s, frame);
            return;
        }
        if (s.waiting.empty()) {
            ++d.stats.lost;
            if (!stale) closeBurst(s, frame);
            return;
        }
        RequestObj* request = s.waiting.front();
        s.waiting.pop_front();
        request->state = RequestObj::State::InFlight;
        request->frameId = stale ? d.lastFrameId : (d.lastFrameId = frameIdOf(d, s, frame));
        request->captureNs = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch()).count());
        request->pulse = pattern;
        s.inFlight.push_back({request, Clock::time_point::max()});
        fillFrame(d, *request, frame, pattern, &lock);
        auto entry = std::find_if(s.inFlight.begin(), s.inFlight.end(),
                                  [request](const InFlight& f) { return f.request == request; });
        Clock::time_point due = std::max(when, s.started);
        if (const auto* late = stale ? nullptr : frameFault(d.frameFaults, frame, FrameFault::Kind::Late))
            due += std::chrono::milliseconds(late->delayMs);
        due = std::max(due, s.lastDue);  // delivery stays in order
        s.lastDue = due;
        entry->due = due;
        entry->ready = true;
        s.filled.notify_all();
        if (const auto* burst = stale ? nullptr : frameFault(d.frameFaults, frame, FrameFault::Kind::Burst)) {
            entry->held = true;
            if (s.burstHeld++ == 0) s.burstLast = lastOfGroup(*burst, frame);
        }
        if (!stale) closeBurst(s, frame);
        d.countTowardsUnplug();
    }

    void produce(Device& d, StreamObj& s) {
        std::unique_lock<std::mutex> lock(d.mutex);
        if (frameFault(d.frameFaults, s.startIndex, FrameFault::Kind::Stale) && d.condition() == CameraCondition::Normal)
            capture(d, s, lock, kNoPattern, s.started - ticks(d.pulsePeriod), true);
        while (!stop_) {
            const auto now = Clock::now();
            deliverDue(d, s, now);
            const Source source = sourceOf(d);
            if (s.source != source) {  // a new trigger set-up starts its own schedule
                // The first pulse comes one period after the start itself, however late
                // this thread began: a host can tell where the first trigger lies.
                const auto origin = s.source ? now : s.started;
                s.source = source;
                s.line = {origin};
                s.nextFreeRun = origin + ticks(d.framePeriod);
            }
            const bool answers = d.condition() == CameraCondition::Normal;
            auto wakeAt = Clock::time_point::max();
            if (source == Source::Software) {
                if (s.pendingSoftware > 0) {
                    --s.pendingSoftware;
                    if (answers) capture(d, s, lock, kNoPattern, now);
                    continue;
                }
            } else if (source == Source::Line) {
                // A dark projector wakes its cameras when it starts.
                if (const auto pulse = d.line->nextPulse(s.line, ticks(d.pulsePeriod))) {
                    const auto edge = pulse->rising + (d.triggerActivation == 0 ? ticks(d.pulseWidth) : Clock::duration(0));
                    if (now >= edge) {
                        const std::uint32_t pattern = s.line.next++;
                        if (answers && frameFault(d.frameFaults, pattern, FrameFault::Kind::MissedPulse)) {
                            ++d.stats.missedPulses;
                        } else if (answers) {
                            capture(d, s, lock, pattern, edge);
                            // The line rang twice: a second frame of the same pattern.
                            if (frameFault(d.frameFaults, pattern, FrameFault::Kind::DoublePulse))
                                capture(d, s, lock, pattern, edge + ticks(d.pulsePeriod) / 8);
                        }
                        continue;
                    }
                    wakeAt = edge;
                }
            } else {
                if (now >= s.nextFreeRun) {
                    s.nextFreeRun += ticks(d.framePeriod);
                    if (now - s.nextFreeRun > std::chrono::seconds(1)) s.nextFreeRun = now;  // no endless catch-up
                    if (answers) capture(d, s, lock, kNoPattern, now);
                    continue;
                }
                wakeAt = s.nextFreeRun;
            }
            if (!s.inFlight.empty() && s.inFlight.front().ready && !s.inFlight.front().held)
                wakeAt = std::min(wakeAt, s.inFlight.front().due);
            if (wakeAt == Clock::time_point::max())
                wake_.wait(lock);
            else
                wake_.wait_until(lock, wakeAt);
        }
    }

    std::atomic<std::size_t>& threads_;
    std::thread thread_;
    bool stop_ = false;  // guarded by the device's mutex
    std::condition_variable wake_;
};

}  // namespace

std::unique_ptr<FrameSource> makeFrameSource(bool render, std::atomic<std::size_t>& threads) {
    if (render) return std::make_unique<ProducerThread>(threads);
    return std::make_unique<InstantFill>();
}

}  // namespace Tavri::sim
