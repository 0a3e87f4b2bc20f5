// A stand-in for the vendor's TeliCamApi64.dll: the simulated rig behind the same
// 37 exports, by ordinal only (see TeliCamApi64.def), so the Windows build of the
// driver runs end to end without the vendor's library or a camera.
//
// Each export forwards to one process-wide SimSdk. Exceptions never cross the C
// boundary: they become result codes of the stand-in's own.

#include <windows.h>

#include <cstdio>
#include <exception>
#include <tuple>
#include <type_traits>

#include "sdk/sim/SimSdk.h"

using Tavri::CameraHandle;
using Tavri::CameraInfoRecord;
using Tavri::EventHandle;
using Tavri::RequestHandle;
using Tavri::Result;
using Tavri::StreamHandle;
using Tavri::TeliSdk;

namespace {

constexpr Result kRigUnavailable = 200;      // the rig (TAVRI_SIM_RIG) could not be built
constexpr Result kUnexpectedException = 201; // the rig threw where it returns codes

TeliSdk* rig() {
    // Built on first use and never destroyed: its producer threads must not be
    // joined under the loader lock while the DLL unloads.
    static TeliSdk* const sdk = []() -> TeliSdk* {
        try {
            return Tavri::sim::makeSdk().release();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "TeliCamApi64 stand-in: %s\n", e.what());
            return nullptr;
        }
    }();
    return sdk;
}

// The export's parameters must be the operation's own, type for type: the driver's
// binding calls each export with exactly TeliSdk's member signature.
template <typename... Params, typename... Args>
Result forward(Result (TeliSdk::*operation)(Params...), Args... args) noexcept {
    static_assert(std::is_same_v<std::tuple<Params...>, std::tuple<Args...>>,
                  "an export takes exactly the arguments of its operation");
    TeliSdk* sdk = rig();
    if (!sdk) return kRigUnavailable;
    try {
        return (sdk->*operation)(args...);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "TeliCamApi64 stand-in: %s\n", e.what());
        return kUnexpectedException;
    } catch (...) {
        return kUnexpectedException;
    }
}

}  // namespace

extern "C" {

Result WINAPI sdkInitialize(std::uint32_t reserved) { return forward(&TeliSdk::sdkInitialize, reserved); }
Result WINAPI sdkTerminate() { return forward(&TeliSdk::sdkTerminate); }

Result WINAPI sdkGetCameraCount(std::uint32_t* count) { return forward(&TeliSdk::sdkGetCameraCount, count); }
Result WINAPI sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) {
    return forward(&TeliSdk::sdkGetCameraInfo, camera, index, info);
}
Result WINAPI sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive,
                            void* reserved2, std::uint32_t mode) {
    return forward(&TeliSdk::sdkOpenCamera, index, camera, reserved1, exclusive, reserved2, mode);
}
Result WINAPI sdkCloseCamera(CameraHandle camera) { return forward(&TeliSdk::sdkCloseCamera, camera); }

Result WINAPI sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize,
                            StreamHandle* stream, std::uint32_t reserved) {
    return forward(&TeliSdk::sdkOpenStream, camera, event, payloadSize, stream, reserved);
}
Result WINAPI sdkCloseStream(StreamHandle stream) { return forward(&TeliSdk::sdkCloseStream, stream); }
Result WINAPI sdkStartStream(StreamHandle stream, std::uint32_t mode) {
    return forward(&TeliSdk::sdkStartStream, stream, mode);
}
Result WINAPI sdkStopStream(StreamHandle stream) { return forward(&TeliSdk::sdkStopStream, stream); }
Result WINAPI sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) {
    return forward(&TeliSdk::sdkCreateRequest, stream, buffer, size, request);
}
Result WINAPI sdkReleaseRequest(StreamHandle stream, RequestHandle request) {
    return forward(&TeliSdk::sdkReleaseRequest, stream, request);
}
Result WINAPI sdkEnqueueRequest(StreamHandle stream, RequestHandle request) {
    return forward(&TeliSdk::sdkEnqueueRequest, stream, request);
}
Result WINAPI sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                      std::uint32_t* size) {
    return forward(&TeliSdk::sdkTakeCompletedRequest, stream, request, buffer, size);
}
Result WINAPI sdkFlushWaitQueue(StreamHandle stream) { return forward(&TeliSdk::sdkFlushWaitQueue, stream); }

Result WINAPI sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) {
    return forward(&TeliSdk::sdkGetSensorWidth, camera, width);
}
Result WINAPI sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) {
    return forward(&TeliSdk::sdkGetSensorHeight, camera, height);
}
Result WINAPI sdkGetWidth(CameraHandle camera, std::uint32_t* width) {
    return forward(&TeliSdk::sdkGetWidth, camera, width);
}
Result WINAPI sdkSetWidth(CameraHandle camera, std::uint32_t width) {
    return forward(&TeliSdk::sdkSetWidth, camera, width);
}
Result WINAPI sdkGetHeight(CameraHandle camera, std::uint32_t* height) {
    return forward(&TeliSdk::sdkGetHeight, camera, height);
}
Result WINAPI sdkSetHeight(CameraHandle camera, std::uint32_t height) {
    return forward(&TeliSdk::sdkSetHeight, camera, height);
}
Result WINAPI sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) {
    return forward(&TeliSdk::sdkSetPixelFormat, camera, format);
}

Result WINAPI sdkGetTriggerMode(CameraHandle camera, bool* on) { return forward(&TeliSdk::sdkGetTriggerMode, camera, on); }
Result WINAPI sdkSetTriggerMode(CameraHandle camera, bool on) { return forward(&TeliSdk::sdkSetTriggerMode, camera, on); }
Result WINAPI sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) {
    return forward(&TeliSdk::sdkSetTriggerSequence, camera, sequence);
}
Result WINAPI sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) {
    return forward(&TeliSdk::sdkSetTriggerSource, camera, source);
}
Result WINAPI sdkExecuteSoftwareTrigger(CameraHandle camera) {
    return forward(&TeliSdk::sdkExecuteSoftwareTrigger, camera);
}
Result WINAPI sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) {
    return forward(&TeliSdk::sdkGetTriggerActivation, camera, activation);
}
Result WINAPI sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) {
    return forward(&TeliSdk::sdkSetTriggerActivation, camera, activation);
}

Result WINAPI sdkGetExposureTime(CameraHandle camera, double* value) {
    return forward(&TeliSdk::sdkGetExposureTime, camera, value);
}
Result WINAPI sdkSetExposureTime(CameraHandle camera, double value) {
    return forward(&TeliSdk::sdkSetExposureTime, camera, value);
}
Result WINAPI sdkGetGain(CameraHandle camera, double* value) { return forward(&TeliSdk::sdkGetGain, camera, value); }
Result WINAPI sdkSetGain(CameraHandle camera, double value) { return forward(&TeliSdk::sdkSetGain, camera, value); }
Result WINAPI sdkGetBlackLevel(CameraHandle camera, double* value) {
    return forward(&TeliSdk::sdkGetBlackLevel, camera, value);
}
Result WINAPI sdkSetBlackLevel(CameraHandle camera, double value) {
    return forward(&TeliSdk::sdkSetBlackLevel, camera, value);
}
Result WINAPI sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) {
    return forward(&TeliSdk::sdkGetBalanceRatio, camera, selector, value);
}
Result WINAPI sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) {
    return forward(&TeliSdk::sdkSetBalanceRatio, camera, selector, value);
}

}  // extern "C"
