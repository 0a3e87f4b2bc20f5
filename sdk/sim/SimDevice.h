#pragma once
// The rig's cameras as devices: configuration, the settings a camera stores, its
// condition and statistics, and the objects handles stand for (a camera handle, the
// stream of sdk/sim/SimStream.h, its requests). Internal to the simulator.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "sdk/sim/SimConfig.h"
#include "sdk/sim/SimProjector.h"
#include "sdk/sim/SimRender.h"

namespace Tavri::sim {

struct Device;
struct StreamObj;
class FrameSource;

// Every handle names one of these in the handle table (sdk/sim/SimHandles.h), which
// frees it when it is closed or released; `open` is guarded by the device's mutex (a
// call that found the object just before the close keeps it alive and sees it closed).
struct HandleObj {
    explicit HandleObj(std::shared_ptr<Device> device) : device(std::move(device)) {}
    virtual ~HandleObj() = default;
    const std::shared_ptr<Device> device;
    void* handle = nullptr;
    bool open = true;
};

struct CameraObj : HandleObj {
    CameraObj(std::shared_ptr<Device> device, bool primary) : HandleObj(std::move(device)), primary(primary) {}
    const bool primary;  // false: a secondary, read-only handle (open answered 4)
};

struct Device : std::enable_shared_from_this<Device> {
    // `presence` moves on whenever a camera of the rig is plugged in or out.
    Device(std::size_t index, const CameraConfig& config, const RigConfig& rig, std::shared_ptr<Projector> line,
           std::atomic<std::uint64_t>& presence, std::atomic<std::size_t>& threads);
    ~Device();

    // Immutable
    const std::size_t index;
    const CameraConfig config;
    const ProjectorConfig projector;
    const bool render;
    const bool drawScene;
    const std::uint64_t seed;
    const std::chrono::duration<double> framePeriod, pulsePeriod, pulseWidth;
    // The projector on the camera's trigger line, shared with the cameras it drives.
    const std::shared_ptr<Projector> line;
    // Benchmark mode or the producer thread, chosen once for the camera's life.
    const std::unique_ptr<FrameSource> frames;

    // Start, stop and close of the stream are serialised by `control`, taken before
    // `mutex`; everything else takes `mutex` alone.
    std::mutex control;
    std::mutex mutex;
    std::vector<FrameFault> frameFaults;
    std::int64_t unplugAfter;
    std::uint32_t width, height, pixelFormat;
    bool triggerMode = false;
    std::uint32_t triggerSource = TriggerSourceCode::Hardware;
    std::uint32_t triggerActivation = 1;
    std::uint32_t triggerSequence = 0;
    PerFeature<double> features;  // as stored: on the grid of their ranges
    CameraObj* primary = nullptr;
    std::vector<CameraObj*> secondaries;
    StreamObj* stream = nullptr;
    CameraStats stats;
    // Frame numbering across acquisitions: the next number to report, the last one
    // reported, and the acquisition starts so far.
    std::uint64_t nextFrameId = 0;
    std::uint64_t lastFrameId = 0;
    std::uint32_t starts = 0;

    CameraCondition condition() const { return condition_; }
    void setCondition(CameraCondition condition);  // mutex held
    // Read without the mutex, for the enumeration.
    bool plugged() const { return plugged_.load(std::memory_order_acquire); }
    bool acquiring() const;  // defined with the stream (sdk/sim/SimStream.h)
    const detail::Scene& scene();
    FrameSettings settings() const;
    std::uint32_t payloadSize() const;
    // The camera becomes Unplugged once `unplugAfter` more frames were captured.
    void countTowardsUnplug();

private:
    CameraCondition condition_;
    std::atomic<bool> plugged_;
    std::atomic<std::uint64_t>& presence_;
    std::once_flag sceneOnce_;
    std::shared_ptr<const detail::Scene> scene_;
};

// What an operation needs of the camera.
enum class Access {
    Read,      // a camera that answers
    Control,   // a camera that answers and a primary handle
    HostSide,  // gives back host resources: works whatever the condition
};
Result conditionCheck(const Device& d, Access access);

// Stores `value` in the range's grid, or refuses it (the stored value stays).
Result storeFeature(const FeatureRange& range, double value, double& stored);
// A width or height within [minimum, maximum] and on its increment.
Result checkSize(std::uint32_t value, std::uint32_t minimum, std::uint32_t maximum, std::uint32_t increment);

}  // namespace Tavri::sim
