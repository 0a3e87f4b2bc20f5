// The state behind SimSdk: rig, presence, handles and closing.

#include "sdk/sim/SimImpl.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Tavri::sim {

using namespace SimResult;

void SimSdk::Impl::build(RigConfig config) {
    validateRig(config);
    devices.clear();
    const auto shared = std::make_shared<Projector>(config.projector.freeRunning);
    const auto& drives = config.projector.drives;
    for (std::size_t i = 0; i < config.cameras.size(); ++i) {
        const bool driven = std::find(drives.begin(), drives.end(), config.cameras[i].serial) != drives.end();
        auto line = driven ? shared : std::make_shared<Projector>(config.projector.freeRunning);
        devices.push_back(std::make_shared<Device>(i, config.cameras[i], config, std::move(line), presence, threads));
    }
    faults.reset(config.faults);
    rig = std::move(config);
    presence.fetch_add(1, std::memory_order_acq_rel);
}

std::vector<std::shared_ptr<Device>> SimSdk::Impl::devicesNow() const {
    std::lock_guard<std::mutex> lock(rigMutex);
    return devices;
}

std::shared_ptr<Device> SimSdk::Impl::device(std::size_t camera) const {
    std::lock_guard<std::mutex> lock(rigMutex);
    if (camera >= devices.size())
        throw std::out_of_range("No camera " + std::to_string(camera) + " in the simulated rig");
    return devices[camera];
}

void SimSdk::Impl::refreshPresent() {
    const std::uint64_t version = presence.load(std::memory_order_acquire);
    if (version == presentSeen) return;
    present.clear();
    for (const auto& d : devicesNow())
        if (d->plugged()) present.push_back(d);
    presentSeen = version;
}

std::uint32_t SimSdk::Impl::presentCount() {
    std::lock_guard<std::mutex> lock(presentMutex);
    refreshPresent();
    return static_cast<std::uint32_t>(present.size());
}

std::shared_ptr<Device> SimSdk::Impl::presentDevice(std::uint32_t index) {
    std::lock_guard<std::mutex> lock(presentMutex);
    refreshPresent();
    return index < present.size() ? present[index] : nullptr;
}

void SimSdk::Impl::retire(HandleObj& object) {
    object.open = false;
    handles.remove(object.handle);
}

Result SimSdk::Impl::request(StreamObj& stream, RequestHandle handle, RequestObj*& out) const {
    std::shared_ptr<RequestObj> object;
    if (Result r = resolve(handle, HandleKind::Request, object)) return r;
    if (object->stream != &stream) return RequestOfOtherStream;
    if (!object->open) return ClosedHandle;
    out = object.get();
    return Success;
}

void SimSdk::Impl::closeStream(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
    stopAcquisition(d, s, lock);
    s.waiting.clear();
    s.completed.clear();
    for (auto* request : s.requests) retire(*request);
    s.requests.clear();
    if (d.stream == &s) d.stream = nullptr;
    d.line->streamClosed(d.index);
    retire(s);  // last: `s` may be freed here
}

void SimSdk::Impl::closeAll(Device& d, std::unique_lock<std::mutex>& lock) {
    if (d.stream) closeStream(d, *d.stream, lock);
    if (d.primary) retire(*d.primary);
    d.primary = nullptr;
    for (auto* camera : d.secondaries) retire(*camera);
    d.secondaries.clear();
}

void SimSdk::Impl::wakeCamerasOn(const Projector& projector) {
    for (const auto& d : devicesNow()) {
        if (d->line.get() != &projector) continue;
        std::lock_guard<std::mutex> lock(d->mutex);
        if (d->acquiring()) d->frames->rescheduled();
    }
}

void SimSdk::Impl::shutDown() {
    for (const auto& d : devicesNow()) {
        std::lock_guard<std::mutex> control(d->control);
        std::unique_lock<std::mutex> lock(d->mutex);
        closeAll(*d, lock);
    }
}

}  // namespace Tavri::sim

namespace Tavri::sim {

bool SimSdk::frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) {
    std::shared_ptr<StreamObj> s;
    if (!info || impl->resolve(stream, HandleKind::Stream, s) != Success) return false;
    std::lock_guard<std::mutex> lock(s->device->mutex);
    RequestObj* r = nullptr;
    if (!s->open || impl->request(*s, request, r) != Success || r != s->lastTaken) return false;
    const Device& d = *s->device;
    info->frameNumber = s->lastTakenId;
    if (d.config.frameIds == FrameIds::Wrap16) {
        info->frameIdWrap = kWrap16Last;
        info->frameIdFirst = 1;
    }
    info->cameraTimeNs = info->captureSteadyNs = s->lastTakenCaptureNs;
    if (s->lastTakenPulse != kNoPattern) {  // else no pulse: a stale or untriggered frame
        info->pulse = s->lastTakenPulse;
        info->pattern = s->lastTakenPulse % patternCount(d.projector);
    }
    if (s->lastTakenFailed) {
        info->status = FrameTooLarge;
        info->statusText = "frame larger than its request buffer";
    }
    return true;
}

bool SimSdk::controlRange(CameraHandle camera, Control control, ControlRange* range) {
    static constexpr Feature kFeatureOf[] = {Feature::Exposure, Feature::Gain, Feature::BlackLevel, Feature::RedRatio,
                                             Feature::BlueRatio};
    std::shared_ptr<CameraObj> c;
    if (!range || impl->resolve(camera, HandleKind::Camera, c) != Success) return false;
    std::lock_guard<std::mutex> lock(c->device->mutex);
    if (!c->open) return false;
    const FeatureRange& r = c->device->config.ranges[kFeatureOf[static_cast<std::size_t>(control)]];
    *range = {r.min, r.max, r.increment};
    return true;
}

}  // namespace Tavri::sim
