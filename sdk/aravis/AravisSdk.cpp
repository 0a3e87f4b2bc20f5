#include "sdk/aravis/AravisSdk.h"

#include <arv.h>
#include <dlfcn.h>

#include <boost/format.hpp>

#include "TavriCommon/Logger.h"
#include "sdk/Backends.h"
#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/CameraFeatures.h"
#include "sdk/aravis/TransportSettings.h"

namespace Tavri::aravis {

namespace {

// Aravis registers GObject types, which GLib never takes back, and its USB layer keeps
// state of its own: once used, Aravis and what it loaded stay for the whole process,
// even when the plug-in that brought them is unloaded and loaded again.
void keepAravisLoaded() {
    Dl_info where{};
    if (dladdr(reinterpret_cast<void*>(&arv_get_n_interfaces), &where) && where.dli_fname &&
        !dlopen(where.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE))
        TAVRI_LOG(1, std::string("Aravis: could not keep ") + where.dli_fname + " loaded: " + dlerror());
}

}  // namespace

AravisSdk::~AravisSdk() { sdkTerminate(); }

std::shared_ptr<AravisSdk::CameraSlot> AravisSdk::findCamera(CameraHandle handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = openCameras_.find(handle);
    return found == openCameras_.end() ? nullptr : found->second;
}

std::shared_ptr<AravisStream> AravisSdk::findStream(StreamHandle handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = streams_.find(handle);
    return found == streams_.end() ? nullptr : found->second.stream;
}

template <typename Access>
Result AravisSdk::onCamera(CameraHandle handle, Access&& access) {
    const auto slot = findCamera(handle);
    if (!slot) return AravisResult::InvalidHandle;
    return slot->connection->withFeatures(std::forward<Access>(access));
}

template <typename Access>
Result AravisSdk::onCameraWrite(CameraHandle handle, const char* operation, Access&& access) {
    const auto slot = findCamera(handle);
    if (!slot) return AravisResult::InvalidHandle;
    features::takeFailureNote();
    const Result result = slot->connection->withFeatures(std::forward<Access>(access));
    const std::string why = features::takeFailureNote();
    // A lost camera answers without being asked and has said so once already.
    if (result && (!why.empty() || result != AravisResult::NotResponding)) {
        const auto text = (boost::format("Aravis: %s failed with %d: %s") % operation % result %
                           (why.empty() ? std::string("no further cause given") : why))
                              .str();
        // The driver sets the same controls at every open and every apply: a camera's
        // refusal is a warning once per run, and a detail after that.
        TAVRI_LOG(toldRefusals_.first(slot->connection->deviceId() + '\n' + text) ? 3 : 1, text);
    }
    return result;
}

template <typename Access>
Result AravisSdk::onStream(StreamHandle handle, Access&& access) {
    const auto stream = findStream(handle);
    if (!stream) return AravisResult::InvalidHandle;
    return access(*stream);
}

void AravisSdk::ensureEnumerated() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (enumerated_) return;
    }
    std::uint32_t count = 0;
    sdkGetCameraCount(&count);
}

Result AravisSdk::sdkInitialize(std::uint32_t) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (initialized_) return AravisResult::AlreadyInitialized;
    keepAravisLoaded();
    initialized_ = true;
    return AravisResult::Success;
}

Result AravisSdk::sdkTerminate() {
    std::map<StreamHandle, StreamSlot> streams;
    std::map<CameraHandle, std::shared_ptr<CameraSlot>> cameras;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        streams.swap(streams_);
        cameras.swap(openCameras_);
        connections_.clear();
        cameras_.clear();
        enumerated_ = false;
        initialized_ = false;
    }
    // Whatever the caller left open goes now, streams before their cameras.
    streams.clear();
    cameras.clear();
    return AravisResult::Success;
}

Result AravisSdk::sdkGetCameraCount(std::uint32_t* count) {
    if (!count) return AravisResult::InvalidArgument;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (enumerated_ && std::chrono::steady_clock::now() - enumeratedAt_ < kDeviceListMaxAge) {
            *count = static_cast<std::uint32_t>(cameras_.size());
            return AravisResult::Success;
        }
    }
    auto found = discoverCameras();
    std::lock_guard<std::mutex> lock(mutex_);
    cameras_ = std::move(found);
    enumerated_ = true;
    enumeratedAt_ = std::chrono::steady_clock::now();
    *count = static_cast<std::uint32_t>(cameras_.size());
    return AravisResult::Success;
}

Result AravisSdk::sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) {
    if (!info) return AravisResult::InvalidArgument;
    if (camera) {
        // An open camera is asked itself: this read is also how its presence is checked,
        // so a camera that is gone must say so quickly.
        const auto slot = findCamera(camera);
        if (!slot) return AravisResult::InvalidHandle;
        if (const Result r = slot->connection->checkPresence()) return r;
        std::string serial, vendor, model;
        const Result result = slot->connection->withFeatures([&](ArvCamera* arv) {
            if (const Result r = features::readSerialNumber(arv, serial)) return r;
            GErrorSlot error;
            const char* text = arv_camera_get_vendor_name(arv, error.out());
            vendor = text && !error ? text : "";
            text = arv_camera_get_model_name(arv, error.out());
            model = text && !error ? text : "";
            return AravisResult::Success;
        });
        if (result) return result;
        info->describe(vendor, model, serial);
        return AravisResult::Success;
    }
    ensureEnumerated();
    std::lock_guard<std::mutex> lock(mutex_);
    if (index >= cameras_.size()) return AravisResult::InvalidIndex;
    const DiscoveredCamera& found = cameras_[index];
    info->describe(found.vendor, found.model, found.serial);
    return AravisResult::Success;
}

Result AravisSdk::sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void*, bool, void*, std::uint32_t) {
    if (!camera) return AravisResult::InvalidArgument;
    // A bad transport variable stops the open, before any traffic: the stream would
    // refuse it anyway, and the user should hear of it at the first step.
    TransportSettings transport;
    if (const Result r = TransportSettings::fromEnvironment(transport)) return r;
    ensureEnumerated();
    std::string deviceId;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (index >= cameras_.size()) return AravisResult::InvalidIndex;
        deviceId = cameras_[index].deviceId;
        // A camera this process holds already is not opened twice: GigE grants one
        // controller. The new handle shares the connection.
        if (auto shared = connections_[deviceId].lock()) {
            auto slot = std::make_shared<CameraSlot>();
            slot->connection = std::move(shared);
            *camera = slot.get();
            openCameras_.emplace(slot.get(), std::move(slot));
            return AravisResult::CameraAlreadyOpen;
        }
    }
    Result result = AravisResult::Success;
    auto connection = CameraConnection::open(deviceId, result);
    if (!connection) {
        // The list may be out of date: the next count looks again.
        std::lock_guard<std::mutex> lock(mutex_);
        enumerated_ = false;
        return result;
    }
    auto slot = std::make_shared<CameraSlot>();
    slot->connection = connection;
    std::lock_guard<std::mutex> lock(mutex_);
    connections_[deviceId] = connection;
    *camera = slot.get();
    openCameras_.emplace(slot.get(), std::move(slot));
    return AravisResult::Success;
}

Result AravisSdk::sdkCloseCamera(CameraHandle camera) {
    std::shared_ptr<CameraSlot> slot;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = openCameras_.find(camera);
        if (found == openCameras_.end()) return AravisResult::InvalidHandle;
        slot = std::move(found->second);
        openCameras_.erase(found);
    }
    // The connection closes with its last handle or stream, outside the lock.
    slot.reset();
    return AravisResult::Success;
}

Result AravisSdk::sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize,
                                StreamHandle* stream, std::uint32_t) {
    if (!payloadSize || !stream) return AravisResult::InvalidArgument;
    const auto slot = findCamera(camera);
    if (!slot) return AravisResult::InvalidHandle;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (slot->streamOpen) return AravisResult::StreamAlreadyOpen;
        slot->streamOpen = true;
    }
    std::uint32_t payload = 0;
    Result result = slot->connection->withFeatures(
        [&](ArvCamera* arv) { return features::largestPayload(arv, payload); });
    std::shared_ptr<AravisStream> opened;
    if (!result) opened = AravisStream::open(slot->connection, event, result);
    std::lock_guard<std::mutex> lock(mutex_);
    if (!opened) {
        slot->streamOpen = false;
        return result;
    }
    *payloadSize = payload;
    *stream = opened.get();
    streams_.emplace(opened.get(), StreamSlot{opened, slot});
    return AravisResult::Success;
}

Result AravisSdk::sdkCloseStream(StreamHandle stream) {
    StreamSlot slot;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = streams_.find(stream);
        if (found == streams_.end()) return AravisResult::InvalidHandle;
        slot = std::move(found->second);
        streams_.erase(found);
        slot.owner->streamOpen = false;
    }
    slot.stream.reset();
    return AravisResult::Success;
}

Result AravisSdk::sdkStartStream(StreamHandle stream, std::uint32_t) {
    return onStream(stream, [](AravisStream& s) { return s.start(); });
}

Result AravisSdk::sdkStopStream(StreamHandle stream) {
    return onStream(stream, [](AravisStream& s) { return s.stop(); });
}

Result AravisSdk::sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) {
    return onStream(stream, [&](AravisStream& s) { return s.createRequest(buffer, size, request); });
}

Result AravisSdk::sdkReleaseRequest(StreamHandle stream, RequestHandle request) {
    return onStream(stream, [&](AravisStream& s) { return s.releaseRequest(request); });
}

Result AravisSdk::sdkEnqueueRequest(StreamHandle stream, RequestHandle request) {
    return onStream(stream, [&](AravisStream& s) { return s.enqueue(request); });
}

Result AravisSdk::sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                          std::uint32_t* size) {
    return onStream(stream, [&](AravisStream& s) { return s.takeCompleted(request, buffer, size); });
}

bool AravisSdk::frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) {
    bool known = false;
    onStream(stream, [&](AravisStream& s) {
        known = s.frameInfo(request, info);
        return AravisResult::Success;
    });
    return known;
}

Result AravisSdk::sdkFlushWaitQueue(StreamHandle stream) {
    return onStream(stream, [](AravisStream& s) { return s.flushWaitQueue(); });
}

namespace {
// Out-pointer guard shared by the getters.
template <typename T>
bool missing(T* out) {
    return out == nullptr;
}
}  // namespace

Result AravisSdk::sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) {
    if (missing(width)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getSensorWidth(arv, *width); });
}

Result AravisSdk::sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) {
    if (missing(height)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getSensorHeight(arv, *height); });
}

Result AravisSdk::sdkGetWidth(CameraHandle camera, std::uint32_t* width) {
    if (missing(width)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getWidth(arv, *width); });
}

Result AravisSdk::sdkSetWidth(CameraHandle camera, std::uint32_t width) {
    return onCameraWrite(camera, "set width", [&](ArvCamera* arv) { return features::setWidth(arv, width); });
}

Result AravisSdk::sdkGetHeight(CameraHandle camera, std::uint32_t* height) {
    if (missing(height)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getHeight(arv, *height); });
}

Result AravisSdk::sdkSetHeight(CameraHandle camera, std::uint32_t height) {
    return onCameraWrite(camera, "set height", [&](ArvCamera* arv) { return features::setHeight(arv, height); });
}

Result AravisSdk::sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) {
    return onCameraWrite(camera, "set pixel format",
                         [&](ArvCamera* arv) { return features::setPixelFormat(arv, format); });
}

Result AravisSdk::sdkGetTriggerMode(CameraHandle camera, bool* on) {
    if (missing(on)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getTriggerMode(arv, *on); });
}

Result AravisSdk::sdkSetTriggerMode(CameraHandle camera, bool on) {
    return onCameraWrite(camera, "set trigger mode", [&](ArvCamera* arv) { return features::setTriggerMode(arv, on); });
}

Result AravisSdk::sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) {
    return onCameraWrite(camera, "set trigger sequence",
                         [&](ArvCamera* arv) { return features::setTriggerSequence(arv, sequence); });
}

Result AravisSdk::sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) {
    return onCameraWrite(camera, "set trigger source",
                         [&](ArvCamera* arv) { return features::setTriggerSource(arv, source); });
}

Result AravisSdk::sdkExecuteSoftwareTrigger(CameraHandle camera) {
    return onCameraWrite(camera, "execute software trigger",
                         [](ArvCamera* arv) { return features::executeSoftwareTrigger(arv); });
}

Result AravisSdk::sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) {
    if (missing(activation)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getTriggerActivation(arv, *activation); });
}

Result AravisSdk::sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) {
    return onCameraWrite(camera, "set trigger activation",
                         [&](ArvCamera* arv) { return features::setTriggerActivation(arv, activation); });
}

Result AravisSdk::sdkGetExposureTime(CameraHandle camera, double* value) {
    if (missing(value)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getExposureTime(arv, *value); });
}

Result AravisSdk::sdkSetExposureTime(CameraHandle camera, double value) {
    return onCameraWrite(camera, "set exposure time",
                         [&](ArvCamera* arv) { return features::setExposureTime(arv, value); });
}

Result AravisSdk::sdkGetGain(CameraHandle camera, double* value) {
    if (missing(value)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getGain(arv, *value); });
}

Result AravisSdk::sdkSetGain(CameraHandle camera, double value) {
    return onCameraWrite(camera, "set gain", [&](ArvCamera* arv) { return features::setGain(arv, value); });
}

Result AravisSdk::sdkGetBlackLevel(CameraHandle camera, double* value) {
    if (missing(value)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getBlackLevel(arv, *value); });
}

Result AravisSdk::sdkSetBlackLevel(CameraHandle camera, double value) {
    return onCameraWrite(camera, "set black level",
                         [&](ArvCamera* arv) { return features::setBlackLevel(arv, value); });
}

Result AravisSdk::sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) {
    if (missing(value)) return AravisResult::InvalidArgument;
    return onCamera(camera, [&](ArvCamera* arv) { return features::getBalanceRatio(arv, selector, *value); });
}

Result AravisSdk::sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) {
    return onCameraWrite(camera, "set balance ratio",
                         [&](ArvCamera* arv) { return features::setBalanceRatio(arv, selector, value); });
}

std::unique_ptr<TeliSdk> makeSdk() { return std::make_unique<AravisSdk>(); }

}  // namespace Tavri::aravis
