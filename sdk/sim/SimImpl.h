#pragma once
// The state behind SimSdk: the rig's devices, the handle table, the operation faults,
// and the checks every operation makes before its body runs. Internal to the
// simulator (SimSdk.cpp and SimControls.cpp).

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "sdk/sim/SimDevice.h"
#include "sdk/sim/SimFaults.h"
#include "sdk/sim/SimHandles.h"
#include "sdk/sim/SimResult.h"
#include "sdk/sim/SimSdk.h"
#include "sdk/sim/SimStream.h"

namespace Tavri::sim {

using Op = Operation;

struct SimSdk::Impl {
    mutable std::mutex rigMutex;  // rig and devices
    RigConfig rig;
    std::vector<std::shared_ptr<Device>> devices;
    std::atomic<bool> initialized{false};
    HandleTable handles;
    OperationFaults faults;
    std::atomic<std::size_t> threads{0};

    // The plugged-in cameras in rig order, made again only when one was plugged in or
    // out, so listing n cameras costs O(n) in all.
    std::atomic<std::uint64_t> presence{0};
    std::mutex presentMutex;
    std::vector<std::shared_ptr<Device>> present;
    std::uint64_t presentSeen = ~0ull;

    void build(RigConfig config);  // rigMutex held, no camera open
    std::vector<std::shared_ptr<Device>> devicesNow() const;
    // Throws std::out_of_range for an index outside the rig.
    std::shared_ptr<Device> device(std::size_t camera) const;

    // Makes `present` again when a camera was plugged in or out since (presentMutex held).
    void refreshPresent();
    std::uint32_t presentCount();
    // The index-th plugged-in camera, or null.
    std::shared_ptr<Device> presentDevice(std::uint32_t index);

    // ---- handles ----

    template <typename T>
    T* keep(HandleKind kind, std::shared_ptr<T> object) {  // the device's mutex held
        T* raw = object.get();
        raw->handle = handles.add(kind, std::move(object));
        return raw;
    }
    // Closes the handle; its object is freed once no call holds it (device mutex held).
    void retire(HandleObj& object);
    template <typename T>
    Result resolve(void* handle, HandleKind kind, std::shared_ptr<T>& out) const {
        std::shared_ptr<void> found;
        if (Result r = handles.find(handle, kind, found)) return r;
        out = std::static_pointer_cast<T>(found);
        return SimResult::Success;
    }

    // The checks every operation on a handle makes, in this order: the injected fault,
    // the initialisation, the handle. Returns Success with the object.
    template <typename T>
    Result enter(Op operation, void* handle, HandleKind kind, std::shared_ptr<T>& object) {
        if (auto code = faults.fire(operation)) return *code;
        if (!initialized) return SimResult::NotInitialized;
        return resolve(handle, kind, object);
    }

    // Runs body(device, camera) with the device's mutex held, after the checks of
    // enter(), the handle still open, the camera's condition and the access.
    template <typename Body>
    Result withCamera(Op operation, CameraHandle handle, Access access, Body&& body) {
        std::shared_ptr<CameraObj> camera;
        if (Result r = enter(operation, handle, HandleKind::Camera, camera)) return r;
        Device& d = *camera->device;
        std::lock_guard<std::mutex> lock(d.mutex);
        if (!camera->open) return SimResult::ClosedHandle;
        if (Result r = conditionCheck(d, access)) return r;
        if (access == Access::Control && !camera->primary) return SimResult::AccessDenied;
        return body(d);
    }

    // As withCamera for a stream; `controlled` also takes the device's control mutex
    // (start, stop, close), and the body gets the lock so it can join the producer.
    template <typename Body>
    Result withStream(Op operation, StreamHandle handle, Access access, bool controlled, Body&& body) {
        std::shared_ptr<StreamObj> stream;
        if (Result r = enter(operation, handle, HandleKind::Stream, stream)) return r;
        Device& d = *stream->device;
        std::unique_lock<std::mutex> control(d.control, std::defer_lock);
        if (controlled) control.lock();
        std::unique_lock<std::mutex> lock(d.mutex);
        if (!stream->open) return SimResult::ClosedHandle;
        if (Result r = conditionCheck(d, access)) return r;
        return body(d, *stream, lock);
    }

    // A request of `stream`, checked with the stream's device mutex held (the table
    // keeps the object while it is open, and only a holder of that mutex closes it).
    Result request(StreamObj& stream, RequestHandle handle, RequestObj*& out) const;
    // Gives back the stream and its requests (control and device mutex held).
    void closeStream(Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock);
    // Closes every handle of the device (control and device mutex held).
    void closeAll(Device& d, std::unique_lock<std::mutex>& lock);
    // Closes every handle of the rig.
    void shutDown();
    // Wakes the producers of the cameras `projector` drives: it has just started.
    // Takes each device's mutex in turn, so none may be held.
    void wakeCamerasOn(const Projector& projector);
};

}  // namespace Tavri::sim
