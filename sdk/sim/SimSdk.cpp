// The simulated rig's 37 operations, one short body each over the devices, the handle
// table, the faults and the streams. Behaviour: sdk/sim/README.md; codes: SimResult.h.

#include "sdk/sim/SimSdk.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "sdk/sim/SimImpl.h"

namespace Tavri::sim {

using namespace SimResult;

namespace {

void fillRecord(const Device& d, CameraInfoRecord* info) {
    info->clear();
    const auto index = static_cast<std::uint32_t>(d.index);
    std::memcpy(info->bytes, &index, sizeof index);
    info->describe(d.config.vendor, d.config.model, d.config.serial);
}

bool validSelector(std::uint32_t selector) {
    return selector == BalanceSelector::Red || selector == BalanceSelector::Blue;
}

// Bodies that read a setting, read a sensor property, or store a feature or a size.
template <typename Value>
auto reader(Value* out, Value Device::*member) {
    return [out, member](Device& d) {
        if (!out) return InvalidArgument;
        *out = d.*member;
        return Success;
    };
}
auto sensorReader(std::uint32_t* out, std::uint32_t CameraConfig::*member) {
    return [out, member](Device& d) {
        if (!out) return InvalidArgument;
        *out = d.config.*member;
        return Success;
    };
}
// The one accessor of the numeric features; the balance ratio's selector picks its row.
auto featureReader(double* out, Feature feature) {
    return [out, feature](Device& d) {
        if (!out) return InvalidArgument;
        *out = d.features[feature];
        return Success;
    };
}
auto featureSetter(double value, Feature feature) {
    return [value, feature](Device& d) { return storeFeature(d.config.ranges[feature], value, d.features[feature]); };
}
Feature balanceFeature(std::uint32_t selector) {
    return selector == BalanceSelector::Red ? Feature::RedRatio : Feature::BlueRatio;
}
// Width or height: `minimum`, the sensor's size and its increment bound it.
auto sizeSetter(std::uint32_t value, std::uint32_t minimum, std::uint32_t CameraConfig::*sensor,
                std::uint32_t CameraConfig::*increment, std::uint32_t Device::*member) {
    return [=](Device& d) {
        if (d.acquiring()) return LockedWhileAcquiring;
        if (Result r = checkSize(value, minimum, d.config.*sensor, d.config.*increment)) return r;
        d.*member = value;
        return Success;
    };
}

}  // namespace

SimSdk::SimSdk() : SimSdk(defaultRig()) {}

SimSdk::SimSdk(RigConfig rig) : impl(std::make_unique<Impl>()) {
    std::lock_guard<std::mutex> lock(impl->rigMutex);
    impl->build(std::move(rig));
}

SimSdk::~SimSdk() { impl->shutDown(); }

// ---- System ----

Result SimSdk::sdkInitialize(std::uint32_t) {
    if (auto code = impl->faults.fire(Op::sdkInitialize)) return *code;
    return impl->initialized.exchange(true) ? AlreadyInitialized : Success;
}

Result SimSdk::sdkTerminate() {
    if (auto code = impl->faults.fire(Op::sdkTerminate)) return *code;
    if (!impl->initialized) return NotInitialized;
    impl->shutDown();
    impl->initialized = false;
    return Success;
}

// ---- Enumeration, open and close ----

Result SimSdk::sdkGetCameraCount(std::uint32_t* count) {
    if (auto code = impl->faults.fire(Op::sdkGetCameraCount)) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!count) return InvalidArgument;
    *count = impl->presentCount();
    return Success;
}

Result SimSdk::sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) {
    if (camera) {
        return impl->withCamera(Op::sdkGetCameraInfo, camera, Access::Read, [&](Device& d) {
            if (!info) return InvalidArgument;
            fillRecord(d, info);
            return Success;
        });
    }
    if (auto code = impl->faults.fire(Op::sdkGetCameraInfo)) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!info) return InvalidArgument;
    const auto d = impl->presentDevice(index);
    if (!d) return IndexOutOfRange;
    std::lock_guard<std::mutex> lock(d->mutex);
    if (Result r = conditionCheck(*d, Access::Read)) return r;
    fillRecord(*d, info);
    return Success;
}

Result SimSdk::sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void*, bool, void*, std::uint32_t) {
    if (auto code = impl->faults.fire(Op::sdkOpenCamera)) return *code;
    if (!impl->initialized) return NotInitialized;
    if (!camera) return InvalidArgument;
    const auto d = impl->presentDevice(index);
    if (!d) return IndexOutOfRange;
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->condition() == CameraCondition::Unplugged) return CameraUnplugged;
    if (d->condition() == CameraCondition::Dead) return NotResponding;
    // A hung camera opens: the open and its close are the connection reset.
    const bool primary = !d->primary;
    auto* opened = impl->keep(HandleKind::Camera, std::make_shared<CameraObj>(d, primary));
    if (primary)
        d->primary = opened;
    else
        d->secondaries.push_back(opened);
    *camera = opened->handle;
    return primary ? Success : CameraAlreadyOpen;
}

Result SimSdk::sdkCloseCamera(CameraHandle camera) {
    std::shared_ptr<CameraObj> cam;
    if (Result r = impl->enter(Op::sdkCloseCamera, camera, HandleKind::Camera, cam)) return r;
    Device& d = *cam->device;
    std::lock_guard<std::mutex> control(d.control);
    std::unique_lock<std::mutex> lock(d.mutex);
    if (!cam->open) return ClosedHandle;
    if (cam->primary) {
        if (d.stream) impl->closeStream(d, *d.stream, lock);
        d.primary = nullptr;
    } else {
        d.secondaries.erase(std::remove(d.secondaries.begin(), d.secondaries.end(), cam.get()), d.secondaries.end());
    }
    if (d.condition() == CameraCondition::Hung) d.setCondition(CameraCondition::Normal);
    impl->retire(*cam);
    return Success;
}

// ---- Stream (its request queue: SimStream.cpp) ----

Result SimSdk::sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                             std::uint32_t) {
    return impl->withCamera(Op::sdkOpenStream, camera, Access::Control, [&](Device& d) {
        if (!payloadSize || !stream) return InvalidArgument;
        if (d.stream) return StreamAlreadyOpen;
        // The scene is made here, not at the first frame, so that the first image of
        // an acquisition is as quick as the others.
        if (d.render && d.drawScene) d.scene();
        d.stream = impl->keep(HandleKind::Stream, std::make_shared<StreamObj>(d.shared_from_this(), event));
        d.line->streamOpened(d.index);
        *payloadSize = d.payloadSize();
        *stream = d.stream->handle;
        return Success;
    });
}

Result SimSdk::sdkCloseStream(StreamHandle stream) {
    return impl->withStream(Op::sdkCloseStream, stream, Access::HostSide, true,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                impl->closeStream(d, s, lock);
                                return Success;
                            });
}

Result SimSdk::sdkStartStream(StreamHandle stream, std::uint32_t) {
    std::shared_ptr<Projector> lit;
    const Result result = impl->withStream(Op::sdkStartStream, stream, Access::Read, true,
                                           [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                               if (startAcquisition(d, s, lock)) lit = d.line;
                                               return Success;
                                           });
    if (lit) impl->wakeCamerasOn(*lit);
    return result;
}

Result SimSdk::sdkStopStream(StreamHandle stream) {
    return impl->withStream(Op::sdkStopStream, stream, Access::HostSide, true,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                stopAcquisition(d, s, lock);
                                return Success;
                            });
}

// ---- Image geometry and pixel format ----

Result SimSdk::sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) {
    return impl->withCamera(Op::sdkGetSensorWidth, camera, Access::Read, sensorReader(width, &CameraConfig::width));
}

Result SimSdk::sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) {
    return impl->withCamera(Op::sdkGetSensorHeight, camera, Access::Read, sensorReader(height, &CameraConfig::height));
}

Result SimSdk::sdkGetWidth(CameraHandle camera, std::uint32_t* width) {
    return impl->withCamera(Op::sdkGetWidth, camera, Access::Read, reader(width, &Device::width));
}

Result SimSdk::sdkSetWidth(CameraHandle camera, std::uint32_t width) {
    return impl->withCamera(Op::sdkSetWidth, camera, Access::Control,
                            sizeSetter(width, kMinWidth, &CameraConfig::width, &CameraConfig::widthIncrement,
                                       &Device::width));
}

Result SimSdk::sdkGetHeight(CameraHandle camera, std::uint32_t* height) {
    return impl->withCamera(Op::sdkGetHeight, camera, Access::Read, reader(height, &Device::height));
}

Result SimSdk::sdkSetHeight(CameraHandle camera, std::uint32_t height) {
    return impl->withCamera(Op::sdkSetHeight, camera, Access::Control,
                            sizeSetter(height, kMinHeight, &CameraConfig::height, &CameraConfig::heightIncrement,
                                       &Device::height));
}

Result SimSdk::sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) {
    return impl->withCamera(Op::sdkSetPixelFormat, camera, Access::Control, [&](Device& d) {
        const auto& formats = d.config.pixelFormats;
        if (std::find(formats.begin(), formats.end(), format) == formats.end()) return ValueNotSupported;
        if (d.acquiring()) return LockedWhileAcquiring;
        d.pixelFormat = format;
        return Success;
    });
}

// ---- Trigger ----

Result SimSdk::sdkGetTriggerMode(CameraHandle camera, bool* on) {
    return impl->withCamera(Op::sdkGetTriggerMode, camera, Access::Read, reader(on, &Device::triggerMode));
}

Result SimSdk::sdkSetTriggerMode(CameraHandle camera, bool on) {
    return impl->withCamera(Op::sdkSetTriggerMode, camera, Access::Control, [&](Device& d) {
        d.triggerMode = on;
        d.frames->rescheduled();
        return Success;
    });
}

Result SimSdk::sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) {
    return impl->withCamera(Op::sdkSetTriggerSequence, camera, Access::Control, [&](Device& d) {
        if (sequence > kMaxTriggerSequence) return InvalidTriggerSequence;
        d.triggerSequence = sequence;
        return Success;
    });
}

Result SimSdk::sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) {
    return impl->withCamera(Op::sdkSetTriggerSource, camera, Access::Control, [&](Device& d) {
        if (source != TriggerSourceCode::Hardware && source != TriggerSourceCode::Software) return ValueNotSupported;
        d.triggerSource = source;
        d.frames->rescheduled();
        return Success;
    });
}

Result SimSdk::sdkExecuteSoftwareTrigger(CameraHandle camera) {
    return impl->withCamera(Op::sdkExecuteSoftwareTrigger, camera, Access::Control, [&](Device& d) {
        if (d.triggerSource != TriggerSourceCode::Software) return SoftwareTriggerNotSelected;
        if (!d.acquiring())
            ++d.stats.ignoredTriggers;
        else
            d.frames->softwareTrigger(*d.stream);
        return Success;
    });
}

Result SimSdk::sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) {
    return impl->withCamera(Op::sdkGetTriggerActivation, camera, Access::Read,
                            reader(activation, &Device::triggerActivation));
}

Result SimSdk::sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) {
    return impl->withCamera(Op::sdkSetTriggerActivation, camera, Access::Control, [&](Device& d) {
        if (activation > 1) return ValueNotSupported;
        d.triggerActivation = activation;
        return Success;
    });
}

// ---- Exposure, gain, black level and white balance ----

Result SimSdk::sdkGetExposureTime(CameraHandle camera, double* value) {
    return impl->withCamera(Op::sdkGetExposureTime, camera, Access::Read, featureReader(value, Feature::Exposure));
}
Result SimSdk::sdkSetExposureTime(CameraHandle camera, double value) {
    return impl->withCamera(Op::sdkSetExposureTime, camera, Access::Control,
                            featureSetter(value, Feature::Exposure));
}
Result SimSdk::sdkGetGain(CameraHandle camera, double* value) {
    return impl->withCamera(Op::sdkGetGain, camera, Access::Read, featureReader(value, Feature::Gain));
}
Result SimSdk::sdkSetGain(CameraHandle camera, double value) {
    return impl->withCamera(Op::sdkSetGain, camera, Access::Control, featureSetter(value, Feature::Gain));
}
Result SimSdk::sdkGetBlackLevel(CameraHandle camera, double* value) {
    return impl->withCamera(Op::sdkGetBlackLevel, camera, Access::Read, featureReader(value, Feature::BlackLevel));
}
Result SimSdk::sdkSetBlackLevel(CameraHandle camera, double value) {
    return impl->withCamera(Op::sdkSetBlackLevel, camera, Access::Control,
                            featureSetter(value, Feature::BlackLevel));
}

Result SimSdk::sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) {
    return impl->withCamera(Op::sdkGetBalanceRatio, camera, Access::Read, [&](Device& d) {
        if (!validSelector(selector)) return ValueNotSupported;
        return featureReader(value, balanceFeature(selector))(d);
    });
}

Result SimSdk::sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) {
    return impl->withCamera(Op::sdkSetBalanceRatio, camera, Access::Control, [&](Device& d) {
        if (!validSelector(selector)) return ValueNotSupported;
        return featureSetter(value, balanceFeature(selector))(d);
    });
}

}  // namespace Tavri::sim
