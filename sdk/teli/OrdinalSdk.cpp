// TeliSdk over the vendor DLL: each operation calls the export bound to its ordinal,
// with the operation's own arguments, unchanged.

#include "sdk/Backends.h"
#include "sdk/teli/VendorLibrary.h"

namespace Tavri::teli {
namespace {

// The export of operation `op`, typed from the interface's own member, so the
// arguments the DLL sees can never drift from TeliSdk's.
#define TAVRI_VENDOR_CALL(op, ...) library_.exportAs<slotOf(#op)>(&TeliSdk::op)(__VA_ARGS__)

class OrdinalSdk final : public TeliSdk {
public:
    Result sdkInitialize(std::uint32_t reserved) override { return TAVRI_VENDOR_CALL(sdkInitialize, reserved); }
    Result sdkTerminate() override { return TAVRI_VENDOR_CALL(sdkTerminate); }

    Result sdkGetCameraCount(std::uint32_t* count) override { return TAVRI_VENDOR_CALL(sdkGetCameraCount, count); }
    Result sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) override {
        return TAVRI_VENDOR_CALL(sdkGetCameraInfo, camera, index, info);
    }
    Result sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive,
                         void* reserved2, std::uint32_t mode) override {
        return TAVRI_VENDOR_CALL(sdkOpenCamera, index, camera, reserved1, exclusive, reserved2, mode);
    }
    Result sdkCloseCamera(CameraHandle camera) override { return TAVRI_VENDOR_CALL(sdkCloseCamera, camera); }

    Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                         std::uint32_t reserved) override {
        return TAVRI_VENDOR_CALL(sdkOpenStream, camera, event, payloadSize, stream, reserved);
    }
    Result sdkCloseStream(StreamHandle stream) override { return TAVRI_VENDOR_CALL(sdkCloseStream, stream); }
    Result sdkStartStream(StreamHandle stream, std::uint32_t mode) override {
        return TAVRI_VENDOR_CALL(sdkStartStream, stream, mode);
    }
    Result sdkStopStream(StreamHandle stream) override { return TAVRI_VENDOR_CALL(sdkStopStream, stream); }
    Result sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) override {
        return TAVRI_VENDOR_CALL(sdkCreateRequest, stream, buffer, size, request);
    }
    Result sdkReleaseRequest(StreamHandle stream, RequestHandle request) override {
        return TAVRI_VENDOR_CALL(sdkReleaseRequest, stream, request);
    }
    Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) override {
        return TAVRI_VENDOR_CALL(sdkEnqueueRequest, stream, request);
    }
    Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                   std::uint32_t* size) override {
        return TAVRI_VENDOR_CALL(sdkTakeCompletedRequest, stream, request, buffer, size);
    }
    Result sdkFlushWaitQueue(StreamHandle stream) override { return TAVRI_VENDOR_CALL(sdkFlushWaitQueue, stream); }

    Result sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) override {
        return TAVRI_VENDOR_CALL(sdkGetSensorWidth, camera, width);
    }
    Result sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) override {
        return TAVRI_VENDOR_CALL(sdkGetSensorHeight, camera, height);
    }
    Result sdkGetWidth(CameraHandle camera, std::uint32_t* width) override {
        return TAVRI_VENDOR_CALL(sdkGetWidth, camera, width);
    }
    Result sdkSetWidth(CameraHandle camera, std::uint32_t width) override {
        return TAVRI_VENDOR_CALL(sdkSetWidth, camera, width);
    }
    Result sdkGetHeight(CameraHandle camera, std::uint32_t* height) override {
        return TAVRI_VENDOR_CALL(sdkGetHeight, camera, height);
    }
    Result sdkSetHeight(CameraHandle camera, std::uint32_t height) override {
        return TAVRI_VENDOR_CALL(sdkSetHeight, camera, height);
    }
    Result sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) override {
        return TAVRI_VENDOR_CALL(sdkSetPixelFormat, camera, format);
    }

    Result sdkGetTriggerMode(CameraHandle camera, bool* on) override {
        return TAVRI_VENDOR_CALL(sdkGetTriggerMode, camera, on);
    }
    Result sdkSetTriggerMode(CameraHandle camera, bool on) override {
        return TAVRI_VENDOR_CALL(sdkSetTriggerMode, camera, on);
    }
    Result sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) override {
        return TAVRI_VENDOR_CALL(sdkSetTriggerSequence, camera, sequence);
    }
    Result sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) override {
        return TAVRI_VENDOR_CALL(sdkSetTriggerSource, camera, source);
    }
    Result sdkExecuteSoftwareTrigger(CameraHandle camera) override {
        return TAVRI_VENDOR_CALL(sdkExecuteSoftwareTrigger, camera);
    }
    Result sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) override {
        return TAVRI_VENDOR_CALL(sdkGetTriggerActivation, camera, activation);
    }
    Result sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) override {
        return TAVRI_VENDOR_CALL(sdkSetTriggerActivation, camera, activation);
    }

    Result sdkGetExposureTime(CameraHandle camera, double* value) override {
        return TAVRI_VENDOR_CALL(sdkGetExposureTime, camera, value);
    }
    Result sdkSetExposureTime(CameraHandle camera, double value) override {
        return TAVRI_VENDOR_CALL(sdkSetExposureTime, camera, value);
    }
    Result sdkGetGain(CameraHandle camera, double* value) override { return TAVRI_VENDOR_CALL(sdkGetGain, camera, value); }
    Result sdkSetGain(CameraHandle camera, double value) override { return TAVRI_VENDOR_CALL(sdkSetGain, camera, value); }
    Result sdkGetBlackLevel(CameraHandle camera, double* value) override {
        return TAVRI_VENDOR_CALL(sdkGetBlackLevel, camera, value);
    }
    Result sdkSetBlackLevel(CameraHandle camera, double value) override {
        return TAVRI_VENDOR_CALL(sdkSetBlackLevel, camera, value);
    }
    Result sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) override {
        return TAVRI_VENDOR_CALL(sdkGetBalanceRatio, camera, selector, value);
    }
    Result sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) override {
        return TAVRI_VENDOR_CALL(sdkSetBalanceRatio, camera, selector, value);
    }

private:
    VendorLibrary library_;
};

#undef TAVRI_VENDOR_CALL

}  // namespace

std::unique_ptr<TeliSdk> makeSdk() { return std::make_unique<OrdinalSdk>(); }

}  // namespace Tavri::teli
