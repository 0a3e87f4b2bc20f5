// The simulated rig's controls for tests and demos: the rig, faults, conditions and
// statistics.

#include <stdexcept>

#include "sdk/sim/SimImpl.h"

namespace Tavri::sim {

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

void SimSdk::failOperation(Operation operation, Result code, FaultWhen when, std::uint32_t call) {
    impl->faults.arm({operation, code, when, call});
}

void SimSdk::clearOperationFaults() { impl->faults.clear(); }

void SimSdk::setCondition(std::size_t camera, CameraCondition condition) {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->setCondition(condition);
}

CameraCondition SimSdk::condition(std::size_t camera) const {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->condition();
}

void SimSdk::unplugAfterFrames(std::size_t camera, std::uint32_t frames) {
    const auto d = impl->device(camera);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->unplugAfter = frames;
    if (frames == 0) d->setCondition(CameraCondition::Unplugged);
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

std::size_t SimSdk::openHandles() const { return impl->handles.live(); }

std::unique_ptr<TeliSdk> makeSdk() { return std::make_unique<SimSdk>(rigFromEnvironment()); }

}  // namespace Tavri::sim
