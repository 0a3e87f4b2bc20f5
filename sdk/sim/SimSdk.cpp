// The simulated rig's SDK operations: handles, the request queues, the frame producer
// and the faults. Behaviour is documented in SimSdk.h; codes in SimResult.h.

#include "sdk/sim/SimSdk.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "TavriCommon/Exceptions.h"
#include "platform/Platform.h"
#include "sdk/sim/SimRender.h"

namespace Tavri::sim {
namespace {

using Clock = std::chrono::steady_clock;
using namespace SimResult;

enum class Kind { Camera, Stream, Request };

struct Device;
struct StreamObj;

// Every handle points at one of these. The SimSdk keeps them until it is destroyed, so
// an address is never handed out twice; `open` is guarded by the device's mutex.
struct HandleObj {
    HandleObj(Kind kind, std::shared_ptr<Device> device) : kind(kind), device(std::move(device)) {}
    virtual ~HandleObj() = default;
    const Kind kind;
    const std::shared_ptr<Device> device;
    bool open = true;
};

struct CameraObj : HandleObj {
    CameraObj(std::shared_ptr<Device> device, bool primary) : HandleObj(Kind::Camera, std::move(device)), primary(primary) {}
    const bool primary;  // false: a secondary, read-only handle (open answered 4)
};

struct RequestObj : HandleObj {
    enum class State { Held, Waiting, InFlight, Completed };
    RequestObj(std::shared_ptr<Device> device, StreamObj* stream, std::uint8_t* buffer, std::uint32_t size)
        : HandleObj(Kind::Request, std::move(device)), stream(stream), buffer(buffer), size(size) {}
    StreamObj* const stream;
    std::uint8_t* const buffer;
    const std::uint32_t size;
    State state = State::Held;
    std::uint32_t bytes = 0;
    bool tooLarge = false;
};

enum class Source { Software, Line, FreeRun };

struct InFlight {
    RequestObj* request;
    Clock::time_point due;
    bool ready = false;  // rendered
    bool held = false;   // part of a burst still being gathered
};

struct StreamObj : HandleObj {
    StreamObj(std::shared_ptr<Device> device, EventHandle event) : HandleObj(Kind::Stream, std::move(device)), event(event) {}
    const EventHandle event;
    std::vector<RequestObj*> requests;  // created and not released
    std::deque<RequestObj*> waiting;
    std::deque<RequestObj*> completed;
    std::deque<InFlight> inFlight;
    // Acquisition
    bool acquiring = false;
    std::uint32_t frame = 0;  // number of the next frame
    std::uint32_t pulse = 0;  // number of the next projector pulse
    std::optional<Source> source;  // what triggered the last scheduling round
    Clock::time_point nextPulse, nextFreeRun, lastDue;
    std::uint32_t pendingSoftware = 0;
    std::uint32_t burstHeld = 0;
    std::thread producer;
    bool stopProducer = false;
    std::condition_variable wake;
};

struct Device : std::enable_shared_from_this<Device> {
    Device(std::size_t index, const CameraConfig& config, const RigConfig& rig)
        : index(index), config(config), projector(rig.projector), render(rig.render), seed(rig.seed),
          framePeriod(std::chrono::duration<double>(1.0 / (config.frameRate > 0.0 ? config.frameRate : rig.frameRate))),
          pulsePeriod(std::chrono::duration<double>(1.0 / rig.projector.rate)),
          pulseWidth(std::chrono::duration<double>(rig.projector.pulseWidthMs / 1000.0)) {
        condition = config.condition;
        frameFaults = config.frameFaults;
        unplugAfter = config.unplugAfterFrames;
        width = config.width;
        height = config.height;
        pixelFormat = config.pixelFormats.front();
        exposure = config.exposure.initial;
        gain = config.gain.initial;
        blackLevel = config.blackLevel.initial;
        redRatio = blueRatio = config.balanceRatio.initial;
    }

    // Immutable
    const std::size_t index;
    const CameraConfig config;
    const ProjectorConfig projector;
    const bool render;
    const std::uint64_t seed;
    const std::chrono::duration<double> framePeriod, pulsePeriod, pulseWidth;

    // Start, stop and close of the stream are serialised by `control`, taken before
    // `mutex`; everything else takes `mutex` alone.
    std::mutex control;
    std::mutex mutex;
    CameraCondition condition;
    std::vector<FrameFault> frameFaults;
    std::int64_t unplugAfter;
    std::uint32_t width, height, pixelFormat;
    bool triggerMode = false;
    std::uint32_t triggerSource = TriggerSourceCode::Hardware;
    std::uint32_t triggerActivation = 1;
    std::uint32_t triggerSequence = 0;
    double exposure, gain, blackLevel, redRatio, blueRatio;
    CameraObj* primary = nullptr;
    std::vector<CameraObj*> secondaries;
    StreamObj* stream = nullptr;
    SimSdk::CameraStats stats;

    std::once_flag sceneOnce;
    std::shared_ptr<const detail::Scene> scene;

    const detail::Scene& sceneOnceMade() {
        std::call_once(sceneOnce, [this] { scene = detail::makeScene(config, seed, index); });
        return *scene;
    }
    bool present() const { return condition != CameraCondition::Unplugged; }
    bool acquiring() const { return stream && stream->acquiring; }
    Source source() const {
        if (triggerSource == TriggerSourceCode::Software) return Source::Software;
        return triggerMode ? Source::Line : Source::FreeRun;
    }
    FrameSettings settings() const {
        FrameSettings s;
        s.pixelFormat = pixelFormat;
        s.width = width;
        s.height = height;
        s.exposure = exposure;
        s.gain = gain;
        s.blackLevel = blackLevel;
        s.redRatio = redRatio;
        s.blueRatio = blueRatio;
        return s;
    }
    std::uint32_t payloadSize() const {
        std::uint32_t largest = 0;
        for (auto format : config.pixelFormats)
            largest = std::max(largest, config.width * config.height * bytesPerPixel(format));
        return largest;
    }
};

// Which frame faults touch frame f.
bool touches(const FrameFault& fault, std::uint32_t f) {
    if (f < fault.first) return false;
    const std::uint32_t offset = f - fault.first;
    return offset % fault.every == 0 && offset / fault.every < fault.count;
}

const FrameFault* faultFor(const Device& d, std::uint32_t frame, FrameFault::Kind kind) {
    for (const auto& fault : d.frameFaults)
        if (fault.kind == kind && touches(fault, frame)) return &fault;
    return nullptr;
}

Result storeFeature(const FeatureRange& range, double value, double& stored) {
    if (!std::isfinite(value)) return ValueNotFinite;
    const double tolerance = range.increment * 1e-6;
    if (value < range.min - tolerance || value > range.max + tolerance) return ValueOutOfRange;
    double result = range.min + std::round((value - range.min) / range.increment) * range.increment;
    if (result > range.max) result -= range.increment;  // a max off the grid
    stored = std::max(result, range.min);
    return Success;
}

enum class Access {
    Read,      // needs a camera that answers
    Control,   // needs a camera that answers and a primary handle
    HostSide,  // gives back host resources: works whatever the condition
};

}  // namespace

struct SimSdk::Impl {
    mutable std::mutex rigMutex;  // rig and devices
    RigConfig rig;
    std::vector<std::shared_ptr<Device>> devices;
    std::atomic<bool> initialized{false};

    mutable std::mutex registryMutex;
    std::unordered_map<void*, std::shared_ptr<HandleObj>> registry;

    struct ArmedFault {
        Result code;
        FaultWhen when;
        std::uint32_t call;
        std::uint32_t seen = 0;
    };
    mutable std::mutex faultMutex;
    // Looked up by the operation's name on every call: no string is built for it.
    std::map<std::string, std::vector<ArmedFault>, std::less<>> faults;

    std::atomic<std::size_t> threads{0};

    // ---- rig ----

    void build(RigConfig config) {  // rigMutex held, no camera open
        validateRig(config);
        devices.clear();
        for (std::size_t i = 0; i < config.cameras.size(); ++i)
            devices.push_back(std::make_shared<Device>(i, config.cameras[i], config));
        {
            std::lock_guard<std::mutex> lock(faultMutex);
            faults.clear();
            for (const auto& f : config.faults) faults[f.operation].push_back({f.code, f.when, f.call});
        }
        rig = std::move(config);
    }

    std::vector<std::shared_ptr<Device>> devicesNow() const {
        std::lock_guard<std::mutex> lock(rigMutex);
        return devices;
    }

    std::shared_ptr<Device> device(std::size_t camera) const {
        std::lock_guard<std::mutex> lock(rigMutex);
        if (camera >= devices.size()) throw std::out_of_range("No camera " + std::to_string(camera) + " in the simulated rig");
        return devices[camera];
    }

    // The index-th camera that is plugged in, or null.
    std::shared_ptr<Device> presentDevice(std::uint32_t index) const {
        std::uint32_t seen = 0;
        for (const auto& d : devicesNow()) {
            std::lock_guard<std::mutex> lock(d->mutex);
            if (d->present() && seen++ == index) return d;
        }
        return nullptr;
    }

    // ---- faults ----

    std::optional<Result> injected(const char* operation) {
        std::lock_guard<std::mutex> lock(faultMutex);
        const auto found = faults.find(operation);
        if (found == faults.end()) return std::nullopt;
        std::optional<Result> fired;
        auto& list = found->second;
        for (auto it = list.begin(); it != list.end();) {
            ++it->seen;
            const bool fires = it->when == FaultWhen::Always || it->when == FaultWhen::Once ||
                               (it->when == FaultWhen::OnCall && it->seen == it->call);
            if (fires && !fired) fired = it->code;
            const bool spent = fires && it->when != FaultWhen::Always;
            it = spent ? list.erase(it) : std::next(it);
        }
        return fired;
    }

    // ---- handles ----

    template <typename T>
    T* keep(std::shared_ptr<T> object) {  // called with the device's mutex held
        T* raw = object.get();
        std::lock_guard<std::mutex> lock(registryMutex);
        registry[raw] = std::move(object);
        return raw;
    }

    Result resolve(void* handle, Kind kind, std::shared_ptr<HandleObj>& out) const {
        if (!handle) return NullHandle;
        std::lock_guard<std::mutex> lock(registryMutex);
        const auto found = registry.find(handle);
        if (found == registry.end()) return UnknownHandle;
        if (found->second->kind != kind) return WrongHandleKind;
        out = found->second;
        return Success;
    }

    static Result conditionCheck(const Device& d, Access access) {
        if (access == Access::HostSide) return Success;
        if (d.condition == CameraCondition::Unplugged) return CameraUnplugged;
        if (d.condition != CameraCondition::Normal) return NotResponding;
        return Success;
    }

    // Runs body(device, camera) with the device's mutex held, after the injected
    // fault, the initialisation, the handle, the camera's condition and the access
    // were checked, in that order.
    template <typename Body>
    Result withCamera(const char* operation, CameraHandle handle, Access access, Body&& body) {
        if (auto code = injected(operation)) return *code;
        if (!initialized) return NotInitialized;
        std::shared_ptr<HandleObj> object;
        if (Result r = resolve(handle, Kind::Camera, object)) return r;
        auto& camera = static_cast<CameraObj&>(*object);
        Device& d = *camera.device;
        std::unique_lock<std::mutex> lock(d.mutex);
        if (!camera.open) return ClosedHandle;
        if (Result r = conditionCheck(d, access)) return r;
        if (access == Access::Control && !camera.primary) return AccessDenied;
        return body(d, camera);
    }

    // As withCamera for a stream; `controlled` also takes the device's control mutex
    // (start, stop, close), and the body gets the lock so it can join the producer.
    template <typename Body>
    Result withStream(const char* operation, StreamHandle handle, Access access, bool controlled, Body&& body) {
        if (auto code = injected(operation)) return *code;
        if (!initialized) return NotInitialized;
        std::shared_ptr<HandleObj> object;
        if (Result r = resolve(handle, Kind::Stream, object)) return r;
        auto& stream = static_cast<StreamObj&>(*object);
        Device& d = *stream.device;
        std::unique_lock<std::mutex> control(d.control, std::defer_lock);
        if (controlled) control.lock();
        std::unique_lock<std::mutex> lock(d.mutex);
        if (!stream.open) return ClosedHandle;
        if (Result r = conditionCheck(d, access)) return r;
        return body(d, stream, lock);
    }

    // A request of `stream`, checked with the stream's device mutex held.
    Result request(StreamObj& stream, RequestHandle handle, RequestObj*& out) const {
        std::shared_ptr<HandleObj> object;
        if (Result r = resolve(handle, Kind::Request, object)) return r;
        auto* request = static_cast<RequestObj*>(object.get());
        if (request->stream != &stream) return RequestOfOtherStream;
        if (!request->open) return ClosedHandle;
        out = request;
        return Success;
    }

    // ---- completions ----

    static void complete(Device& d, StreamObj& s, RequestObj* request) {
        request->state = RequestObj::State::Completed;
        s.completed.push_back(request);
        if (request->tooLarge)
            ++d.stats.failed;
        else
            ++d.stats.completed;
        if (s.event) platform::setEvent(s.event);
    }

    static void deliverDue(Device& d, StreamObj& s, Clock::time_point now) {
        while (!s.inFlight.empty() && s.inFlight.front().ready && !s.inFlight.front().held &&
               s.inFlight.front().due <= now) {
            RequestObj* request = s.inFlight.front().request;
            s.inFlight.pop_front();
            complete(d, s, request);
        }
    }

    static void countTowardsUnplug(Device& d) {
        if (d.unplugAfter < 0) return;
        if (d.unplugAfter > 0) --d.unplugAfter;
        if (d.unplugAfter == 0) {
            d.condition = CameraCondition::Unplugged;
            d.unplugAfter = -1;
        }
    }

    // Benchmark mode: the request is filled at once, stamp only.
    static void completeAtOnce(Device& d, StreamObj& s, RequestObj* request) {
        if (d.condition != CameraCondition::Normal) return;
        const std::uint32_t frame = s.frame++;
        ++d.stats.triggers;
        const FrameSettings settings = d.settings();
        std::uint64_t bytes = static_cast<std::uint64_t>(settings.width) * settings.height * bytesPerPixel(settings.pixelFormat);
        if (const auto* oversize = faultFor(d, frame, FrameFault::Kind::Oversize))
            bytes = static_cast<std::uint64_t>(request->size) + oversize->extraBytes;
        request->tooLarge = bytes > request->size;
        request->bytes = request->tooLarge ? 0 : static_cast<std::uint32_t>(bytes);
        if (!request->tooLarge) detail::writeStamp(settings, frame, kNoPattern, request->buffer);
        const auto position = std::find(s.waiting.begin(), s.waiting.end(), request);
        if (position != s.waiting.end()) s.waiting.erase(position);
        complete(d, s, request);
        countTowardsUnplug(d);
    }

    // ---- the producer ----

    // Takes frame `frame` into the oldest waiting request; unlocks while rendering.
    static void capture(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock, std::uint32_t pattern,
                        Clock::time_point when) {
        const std::uint32_t frame = s.frame++;
        ++d.stats.triggers;
        if (faultFor(d, frame, FrameFault::Kind::Drop)) {
            ++d.stats.dropped;
            return;
        }
        if (s.waiting.empty()) {
            ++d.stats.lost;
            return;
        }
        RequestObj* request = s.waiting.front();
        s.waiting.pop_front();
        request->state = RequestObj::State::InFlight;
        s.inFlight.push_back({request, Clock::time_point::max()});

        const FrameSettings settings = d.settings();
        std::uint64_t bytes = static_cast<std::uint64_t>(settings.width) * settings.height * bytesPerPixel(settings.pixelFormat);
        if (const auto* oversize = faultFor(d, frame, FrameFault::Kind::Oversize))
            bytes = static_cast<std::uint64_t>(request->size) + oversize->extraBytes;
        request->tooLarge = bytes > request->size;
        request->bytes = request->tooLarge ? 0 : static_cast<std::uint32_t>(bytes);
        if (!request->tooLarge) {
            // The request is in flight: nobody else touches its buffer, flush and
            // release leave it alone, and close joins this thread first.
            lock.unlock();
            detail::renderInto(d.sceneOnceMade(), d.projector, settings, frame, pattern, request->buffer);
            lock.lock();
        }
        auto entry = std::find_if(s.inFlight.begin(), s.inFlight.end(),
                                  [request](const InFlight& f) { return f.request == request; });
        Clock::time_point due = when;
        if (const auto* late = faultFor(d, frame, FrameFault::Kind::Late)) due += std::chrono::milliseconds(late->delayMs);
        due = std::max(due, s.lastDue);  // delivery stays in order
        s.lastDue = due;
        entry->due = due;
        entry->ready = true;
        if (const auto* burst = faultFor(d, frame, FrameFault::Kind::Burst)) {
            entry->held = true;
            if (++s.burstHeld >= burst->burst) {
                for (auto& f : s.inFlight) f.held = false;
                s.burstHeld = 0;
            }
        }
        countTowardsUnplug(d);
    }

    static void produce(std::shared_ptr<Device> device, StreamObj* stream) {
        Device& d = *device;
        StreamObj& s = *stream;
        std::unique_lock<std::mutex> lock(d.mutex);
        while (!s.stopProducer) {
            const auto now = Clock::now();
            deliverDue(d, s, now);
            const Source source = d.source();
            if (s.source != source) {  // a new trigger set-up starts its own schedule
                s.source = source;
                s.nextPulse = now + std::chrono::duration_cast<Clock::duration>(d.pulsePeriod);
                s.nextFreeRun = now + std::chrono::duration_cast<Clock::duration>(d.framePeriod);
            }
            const bool answers = d.condition == CameraCondition::Normal;
            auto wakeAt = Clock::time_point::max();
            if (source == Source::Software) {
                if (s.pendingSoftware > 0) {
                    --s.pendingSoftware;
                    if (answers) capture(d, s, lock, kNoPattern, now);
                    continue;
                }
            } else if (source == Source::Line) {
                const auto edge = s.nextPulse + std::chrono::duration_cast<Clock::duration>(
                                                    d.triggerActivation == 0 ? d.pulseWidth : std::chrono::duration<double>(0));
                if (now >= edge) {
                    const std::uint32_t pattern = s.pulse++;
                    s.nextPulse += std::chrono::duration_cast<Clock::duration>(d.pulsePeriod);
                    if (answers) capture(d, s, lock, pattern, edge);
                    continue;
                }
                wakeAt = edge;
            } else {
                if (now >= s.nextFreeRun) {
                    s.nextFreeRun += std::chrono::duration_cast<Clock::duration>(d.framePeriod);
                    if (now - s.nextFreeRun > std::chrono::seconds(1)) s.nextFreeRun = now;  // no endless catch-up
                    if (answers) capture(d, s, lock, kNoPattern, now);
                    continue;
                }
                wakeAt = s.nextFreeRun;
            }
            if (!s.inFlight.empty() && s.inFlight.front().ready && !s.inFlight.front().held)
                wakeAt = std::min(wakeAt, s.inFlight.front().due);
            if (wakeAt == Clock::time_point::max())
                s.wake.wait(lock);
            else
                s.wake.wait_until(lock, wakeAt);
        }
    }

    void start(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
        if (s.acquiring) stop(d, s, lock);  // a start while running restarts
        s.acquiring = true;
        s.frame = 0;
        s.pulse = 0;
        s.pendingSoftware = 0;
        s.burstHeld = 0;
        s.source.reset();
        s.lastDue = Clock::now();
        if (!d.render) {
            while (!s.waiting.empty() && d.condition == CameraCondition::Normal) completeAtOnce(d, s, s.waiting.front());
            return;
        }
        s.stopProducer = false;
        ++threads;
        s.producer = std::thread([this, device = d.shared_from_this(), stream = &s] {
            try {
                produce(device, stream);
            } catch (...) {
                // A producer that cannot go on (out of memory) simply stops producing.
            }
            --threads;
        });
    }

    // Stops acquisition: the producer is told, joined with the device's mutex released
    // (the control mutex keeps other starts and stops out), and frames in flight are
    // delivered.
    static void stop(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
        if (!s.acquiring) return;
        s.acquiring = false;
        s.stopProducer = true;
        s.wake.notify_all();
        std::thread producer = std::move(s.producer);
        if (producer.joinable()) {
            lock.unlock();
            producer.join();
            lock.lock();
        }
        for (auto& f : s.inFlight) complete(d, s, f.request);
        s.inFlight.clear();
        s.pendingSoftware = 0;
    }

    // Gives back the stream and its requests (control and device mutex held).
    void closeStream(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
        stop(d, s, lock);
        for (auto* request : s.requests) request->open = false;
        s.requests.clear();
        s.waiting.clear();
        s.completed.clear();
        s.open = false;
        if (d.stream == &s) d.stream = nullptr;
    }

    // Closes every handle of the device (control and device mutex held).
    void closeAll(Device& d, std::unique_lock<std::mutex>& lock) {
        if (d.stream) closeStream(d, *d.stream, lock);
        if (d.primary) d.primary->open = false;
        d.primary = nullptr;
        for (auto* camera : d.secondaries) camera->open = false;
        d.secondaries.clear();
    }

    void shutDown() {
        for (const auto& d : devicesNow()) {
            std::lock_guard<std::mutex> control(d->control);
            std::unique_lock<std::mutex> lock(d->mutex);
            closeAll(*d, lock);
        }
    }
};

}  // namespace Tavri::sim

namespace Tavri::sim {

SimSdk::SimSdk() : SimSdk(defaultRig()) {}

SimSdk::SimSdk(RigConfig rig) : impl(std::make_unique<Impl>()) {
    std::lock_guard<std::mutex> lock(impl->rigMutex);
    impl->build(std::move(rig));
}

SimSdk::~SimSdk() { impl->shutDown(); }

// ---- System ----

Result SimSdk::sdkInitialize(std::uint32_t) {
    if (auto code = impl->injected("sdkInitialize")) return *code;
    return impl->initialized.exchange(true) ? AlreadyInitialized : Success;
}

Result SimSdk::sdkTerminate() {
    if (auto code = impl->injected("sdkTerminate")) return *code;
    if (!impl->initialized) return NotInitialized;
    impl->shutDown();
    impl->initialized = false;
    return Success;
}

// ---- Enumeration, open and close ----

Result SimSdk::sdkGetCameraCount(std::uint32_t* count) {
    if (auto code = impl->injected("sdkGetCameraCount")) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!count) return NullArgument;
    std::uint32_t present = 0;
    for (const auto& d : impl->devicesNow()) {
        std::lock_guard<std::mutex> lock(d->mutex);
        if (d->present()) ++present;
    }
    *count = present;
    return Success;
}

namespace {
void fillRecord(const Device& d, CameraInfoRecord* info) {
    info->clear();
    const auto index = static_cast<std::uint32_t>(d.index);
    std::memcpy(info->bytes, &index, sizeof index);
    info->describe(d.config.vendor, d.config.model, d.config.serial);
}
}  // namespace

Result SimSdk::sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) {
    if (camera) {
        return impl->withCamera("sdkGetCameraInfo", camera, Access::Read, [&](Device& d, CameraObj&) {
            if (!info) return NullArgument;
            fillRecord(d, info);
            return Success;
        });
    }
    if (auto code = impl->injected("sdkGetCameraInfo")) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!info) return NullArgument;
    const auto d = impl->presentDevice(index);
    if (!d) return IndexOutOfRange;
    std::lock_guard<std::mutex> lock(d->mutex);
    if (Result r = Impl::conditionCheck(*d, Access::Read)) return r;
    fillRecord(*d, info);
    return Success;
}

Result SimSdk::sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void*, bool, void*, std::uint32_t) {
    if (auto code = impl->injected("sdkOpenCamera")) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!camera) return NullArgument;
    const auto d = impl->presentDevice(index);
    if (!d) return IndexOutOfRange;
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->condition == CameraCondition::Unplugged) return CameraUnplugged;
    if (d->condition == CameraCondition::Dead) return NotResponding;
    // A hung camera opens: the open and its close are the connection reset.
    if (d->primary) {
        auto* secondary = impl->keep(std::make_shared<CameraObj>(d, false));
        d->secondaries.push_back(secondary);
        *camera = secondary;
        return CameraAlreadyOpen;
    }
    d->primary = impl->keep(std::make_shared<CameraObj>(d, true));
    *camera = d->primary;
    return Success;
}

Result SimSdk::sdkCloseCamera(CameraHandle camera) {
    if (auto code = impl->injected("sdkCloseCamera")) return *code;
    if (!impl->initialized) return NotInitialized;
    std::shared_ptr<HandleObj> object;
    if (Result r = impl->resolve(camera, Kind::Camera, object)) return r;
    auto& cam = static_cast<CameraObj&>(*object);
    Device& d = *cam.device;
    std::lock_guard<std::mutex> control(d.control);
    std::unique_lock<std::mutex> lock(d.mutex);
    if (!cam.open) return ClosedHandle;
    if (cam.primary) {
        if (d.stream) impl->closeStream(d, *d.stream, lock);
        d.primary = nullptr;
    } else {
        d.secondaries.erase(std::remove(d.secondaries.begin(), d.secondaries.end(), &cam), d.secondaries.end());
    }
    cam.open = false;
    if (d.condition == CameraCondition::Hung) d.condition = CameraCondition::Normal;
    return Success;
}

// ---- Stream and request queue ----

Result SimSdk::sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                             std::uint32_t) {
    return impl->withCamera("sdkOpenStream", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (!payloadSize || !stream) return NullArgument;
        if (d.stream) return StreamAlreadyOpen;
        // The scene is made here, not at the first frame, so that the first image of
        // an acquisition is as quick as the others.
        if (d.render) d.sceneOnceMade();
        d.stream = impl->keep(std::make_shared<StreamObj>(d.shared_from_this(), event));
        *payloadSize = d.payloadSize();
        *stream = d.stream;
        return Success;
    });
}

Result SimSdk::sdkCloseStream(StreamHandle stream) {
    return impl->withStream("sdkCloseStream", stream, Access::HostSide, true,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                impl->closeStream(d, s, lock);
                                return Success;
                            });
}

Result SimSdk::sdkStartStream(StreamHandle stream, std::uint32_t) {
    return impl->withStream("sdkStartStream", stream, Access::Read, true,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                impl->start(d, s, lock);
                                return Success;
                            });
}

Result SimSdk::sdkStopStream(StreamHandle stream) {
    return impl->withStream("sdkStopStream", stream, Access::HostSide, true,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                Impl::stop(d, s, lock);
                                return Success;
                            });
}

Result SimSdk::sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) {
    return impl->withStream("sdkCreateRequest", stream, Access::HostSide, false,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>&) {
                                if (!request) return NullArgument;
                                if (!buffer) return NullBuffer;
                                if (size == 0) return ZeroBufferSize;
                                if (s.requests.size() >= kMaxRequestsPerStream) return TooManyRequests;
                                auto* created = impl->keep(std::make_shared<RequestObj>(
                                    d.shared_from_this(), &s, static_cast<std::uint8_t*>(buffer), size));
                                s.requests.push_back(created);
                                *request = created;
                                return Success;
                            });
}

Result SimSdk::sdkReleaseRequest(StreamHandle stream, RequestHandle request) {
    return impl->withStream("sdkReleaseRequest", stream, Access::HostSide, false,
                            [&](Device&, StreamObj& s, std::unique_lock<std::mutex>&) {
                                RequestObj* r = nullptr;
                                if (Result code = impl->request(s, request, r)) return code;
                                if (r->state != RequestObj::State::Held) return RequestInUse;
                                r->open = false;
                                s.requests.erase(std::remove(s.requests.begin(), s.requests.end(), r), s.requests.end());
                                return Success;
                            });
}

Result SimSdk::sdkEnqueueRequest(StreamHandle stream, RequestHandle request) {
    return impl->withStream("sdkEnqueueRequest", stream, Access::HostSide, false,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>&) {
                                RequestObj* r = nullptr;
                                if (Result code = impl->request(s, request, r)) return code;
                                if (r->state != RequestObj::State::Held) return RequestNotHeld;
                                r->state = RequestObj::State::Waiting;
                                s.waiting.push_back(r);
                                if (!d.render && s.acquiring) Impl::completeAtOnce(d, s, r);
                                return Success;
                            });
}

namespace {
// With no completed request left, a signal still pending stands for images that were
// taken without a wait (a drain): consume it, so that a signal always means an image.
void clearSignal(StreamObj& s) {
    if (s.event) platform::waitForEvent(s.event, 0);
}
}  // namespace

Result SimSdk::sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                       std::uint32_t* size) {
    return impl->withStream("sdkTakeCompletedRequest", stream, Access::HostSide, false,
                            [&](Device&, StreamObj& s, std::unique_lock<std::mutex>&) {
                                if (!request || !buffer || !size) return NullArgument;
                                if (s.completed.empty()) {
                                    clearSignal(s);
                                    return NoCompletedRequest;
                                }
                                RequestObj* r = s.completed.front();
                                s.completed.pop_front();
                                r->state = RequestObj::State::Held;
                                *request = r;
                                *buffer = r->buffer;
                                *size = r->bytes;
                                // One wait per take: signal again while images are left.
                                if (!s.completed.empty() && s.event)
                                    platform::setEvent(s.event);
                                else
                                    clearSignal(s);
                                return r->tooLarge ? FrameTooLarge : Success;
                            });
}

Result SimSdk::sdkFlushWaitQueue(StreamHandle stream) {
    return impl->withStream("sdkFlushWaitQueue", stream, Access::HostSide, false,
                            [&](Device&, StreamObj& s, std::unique_lock<std::mutex>&) {
                                for (auto* r : s.waiting) r->state = RequestObj::State::Held;
                                s.waiting.clear();
                                return Success;
                            });
}

// ---- Image geometry and pixel format ----

Result SimSdk::sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) {
    return impl->withCamera("sdkGetSensorWidth", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!width) return NullArgument;
        *width = d.config.width;
        return Success;
    });
}

Result SimSdk::sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) {
    return impl->withCamera("sdkGetSensorHeight", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!height) return NullArgument;
        *height = d.config.height;
        return Success;
    });
}

Result SimSdk::sdkGetWidth(CameraHandle camera, std::uint32_t* width) {
    return impl->withCamera("sdkGetWidth", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!width) return NullArgument;
        *width = d.width;
        return Success;
    });
}

namespace {
Result checkSize(std::uint32_t value, std::uint32_t minimum, std::uint32_t maximum, std::uint32_t increment) {
    if (value < minimum || value > maximum) return ValueOutOfRange;
    if (value % increment) return ValueNotOnIncrement;
    return Success;
}
}  // namespace

Result SimSdk::sdkSetWidth(CameraHandle camera, std::uint32_t width) {
    return impl->withCamera("sdkSetWidth", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (d.acquiring()) return LockedWhileAcquiring;
        if (Result r = checkSize(width, kMinWidth, d.config.width, d.config.widthIncrement)) return r;
        d.width = width;
        return Success;
    });
}

Result SimSdk::sdkGetHeight(CameraHandle camera, std::uint32_t* height) {
    return impl->withCamera("sdkGetHeight", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!height) return NullArgument;
        *height = d.height;
        return Success;
    });
}

Result SimSdk::sdkSetHeight(CameraHandle camera, std::uint32_t height) {
    return impl->withCamera("sdkSetHeight", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (d.acquiring()) return LockedWhileAcquiring;
        if (Result r = checkSize(height, kMinHeight, d.config.height, d.config.heightIncrement)) return r;
        d.height = height;
        return Success;
    });
}

Result SimSdk::sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) {
    return impl->withCamera("sdkSetPixelFormat", camera, Access::Control, [&](Device& d, CameraObj&) {
        const auto& formats = d.config.pixelFormats;
        if (std::find(formats.begin(), formats.end(), format) == formats.end()) return UnsupportedPixelFormat;
        if (d.acquiring()) return LockedWhileAcquiring;
        d.pixelFormat = format;
        return Success;
    });
}

// ---- Trigger ----

namespace {
void rescheduled(Device& d) {
    if (d.stream) d.stream->wake.notify_all();
}
}  // namespace

Result SimSdk::sdkGetTriggerMode(CameraHandle camera, bool* on) {
    return impl->withCamera("sdkGetTriggerMode", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!on) return NullArgument;
        *on = d.triggerMode;
        return Success;
    });
}

Result SimSdk::sdkSetTriggerMode(CameraHandle camera, bool on) {
    return impl->withCamera("sdkSetTriggerMode", camera, Access::Control, [&](Device& d, CameraObj&) {
        d.triggerMode = on;
        rescheduled(d);
        return Success;
    });
}

Result SimSdk::sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) {
    return impl->withCamera("sdkSetTriggerSequence", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (sequence > kMaxTriggerSequence) return InvalidTriggerSequence;
        d.triggerSequence = sequence;
        return Success;
    });
}

Result SimSdk::sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) {
    return impl->withCamera("sdkSetTriggerSource", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (source != TriggerSourceCode::Hardware && source != TriggerSourceCode::Software) return InvalidTriggerSource;
        d.triggerSource = source;
        rescheduled(d);
        return Success;
    });
}

Result SimSdk::sdkExecuteSoftwareTrigger(CameraHandle camera) {
    return impl->withCamera("sdkExecuteSoftwareTrigger", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (d.triggerSource != TriggerSourceCode::Software) return SoftwareTriggerNotSelected;
        if (!d.acquiring() || !d.render) {
            if (!d.acquiring()) ++d.stats.ignoredTriggers;
            return Success;
        }
        ++d.stream->pendingSoftware;
        d.stream->wake.notify_all();
        return Success;
    });
}

Result SimSdk::sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) {
    return impl->withCamera("sdkGetTriggerActivation", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (!activation) return NullArgument;
        *activation = d.triggerActivation;
        return Success;
    });
}

Result SimSdk::sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) {
    return impl->withCamera("sdkSetTriggerActivation", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (activation > 1) return InvalidTriggerActivation;
        d.triggerActivation = activation;
        return Success;
    });
}

// ---- Exposure, gain, black level and white balance ----

namespace {
template <typename Member>
auto getter(double* value, Member member) {
    return [value, member](Device& d, CameraObj&) {
        if (!value) return NullArgument;
        *value = d.*member;
        return Success;
    };
}
template <typename Member>
auto setter(double value, FeatureRange CameraConfig::*range, Member member) {
    return [value, range, member](Device& d, CameraObj&) { return storeFeature(d.config.*range, value, d.*member); };
}
}  // namespace

Result SimSdk::sdkGetExposureTime(CameraHandle camera, double* value) {
    return impl->withCamera("sdkGetExposureTime", camera, Access::Read, getter(value, &Device::exposure));
}
Result SimSdk::sdkSetExposureTime(CameraHandle camera, double value) {
    return impl->withCamera("sdkSetExposureTime", camera, Access::Control,
                            setter(value, &CameraConfig::exposure, &Device::exposure));
}
Result SimSdk::sdkGetGain(CameraHandle camera, double* value) {
    return impl->withCamera("sdkGetGain", camera, Access::Read, getter(value, &Device::gain));
}
Result SimSdk::sdkSetGain(CameraHandle camera, double value) {
    return impl->withCamera("sdkSetGain", camera, Access::Control, setter(value, &CameraConfig::gain, &Device::gain));
}
Result SimSdk::sdkGetBlackLevel(CameraHandle camera, double* value) {
    return impl->withCamera("sdkGetBlackLevel", camera, Access::Read, getter(value, &Device::blackLevel));
}
Result SimSdk::sdkSetBlackLevel(CameraHandle camera, double value) {
    return impl->withCamera("sdkSetBlackLevel", camera, Access::Control,
                            setter(value, &CameraConfig::blackLevel, &Device::blackLevel));
}

Result SimSdk::sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) {
    return impl->withCamera("sdkGetBalanceRatio", camera, Access::Read, [&](Device& d, CameraObj&) {
        if (selector != BalanceSelector::Red && selector != BalanceSelector::Blue) return InvalidSelector;
        if (!value) return NullArgument;
        *value = selector == BalanceSelector::Red ? d.redRatio : d.blueRatio;
        return Success;
    });
}

Result SimSdk::sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) {
    return impl->withCamera("sdkSetBalanceRatio", camera, Access::Control, [&](Device& d, CameraObj&) {
        if (selector != BalanceSelector::Red && selector != BalanceSelector::Blue) return InvalidSelector;
        return storeFeature(d.config.balanceRatio, value, selector == BalanceSelector::Red ? d.redRatio : d.blueRatio);
    });
}

// ---- Controls ----

bool SimSdk::setRig(RigConfig rig) {
    validateRig(rig);
    std::lock_guard<std::mutex> lock(impl->rigMutex);
    for (const auto& d : impl->devices) {
        std::lock_guard<std::mutex> deviceLock(d->mutex);
        if (d->primary || !d->secondaries.empty()) return false;
    }
    impl->build(std::move(rig));
    return true;
}

RigConfig SimSdk::rig() const {
    std::lock_guard<std::mutex> lock(impl->rigMutex);
    return impl->rig;
}

void SimSdk::failOperation(const std::string& operation, Result code, FaultWhen when, std::uint32_t call) {
    const bool known = std::any_of(kSdkOrdinals.begin(), kSdkOrdinals.end(),
                                   [&](const SdkOrdinal& entry) { return operation == entry.name; });
    if (!known) throw std::invalid_argument("'" + operation + "' is not an SDK operation");
    std::lock_guard<std::mutex> lock(impl->faultMutex);
    impl->faults[operation].push_back({code, when, std::max<std::uint32_t>(call, 1)});
}

void SimSdk::clearOperationFaults() {
    std::lock_guard<std::mutex> lock(impl->faultMutex);
    impl->faults.clear();
}

void SimSdk::setCondition(std::size_t camera, CameraCondition condition) {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->condition = condition;
    rescheduled(*d);
}

CameraCondition SimSdk::condition(std::size_t camera) const {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->condition;
}

void SimSdk::unplugAfterFrames(std::size_t camera, std::uint32_t frames) {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->unplugAfter = frames;
    if (frames == 0) d->condition = CameraCondition::Unplugged;
}

void SimSdk::addFrameFault(std::size_t camera, const FrameFault& fault) {
    if (fault.every < 1 || fault.burst < 1 || fault.extraBytes < 1)
        throw std::invalid_argument("A frame fault needs every, burst and extraBytes >= 1");
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->frameFaults.push_back(fault);
}

void SimSdk::clearFrameFaults(std::size_t camera) {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->frameFaults.clear();
}

SimSdk::CameraStats SimSdk::stats(std::size_t camera) const {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->stats;
}

std::size_t SimSdk::runningThreads() const { return impl->threads.load(); }

std::size_t SimSdk::openHandles() const {
    std::vector<std::shared_ptr<HandleObj>> all;
    {
        std::lock_guard<std::mutex> lock(impl->registryMutex);
        for (const auto& entry : impl->registry) all.push_back(entry.second);
    }
    std::size_t open = 0;
    for (const auto& object : all) {
        std::lock_guard<std::mutex> lock(object->device->mutex);
        if (object->open) ++open;
    }
    return open;
}

std::unique_ptr<TeliSdk> makeSdk() { return std::make_unique<SimSdk>(rigFromEnvironment()); }

}  // namespace Tavri::sim
