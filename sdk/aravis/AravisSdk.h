#pragma once
// The SDK over Aravis: any GenICam GigE Vision or USB3 Vision camera. Handles are
// objects of this backend, checked on every call, so a stale or foreign handle is a
// result code, never a crash. Result codes: AravisResult.h.

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sdk/FrameInfo.h"
#include "sdk/TeliSdk.h"
#include "sdk/aravis/AravisStream.h"
#include "sdk/aravis/CameraConnection.h"
#include "sdk/aravis/Discovery.h"

namespace Tavri::aravis {

class AravisSdk final : public TeliSdk, public FrameInfoSource {
public:
    // A device list younger than this is reused: the driver counts cameras up to three
    // times for one open, and each GigE discovery round waits out about a second. A
    // camera that comes or goes is seen once the list is older, or after an open that
    // failed on it.
    static constexpr std::chrono::seconds kDeviceListMaxAge{5};

    AravisSdk() = default;
    ~AravisSdk() override;

    Result sdkInitialize(std::uint32_t reserved) override;
    Result sdkTerminate() override;
    Result sdkGetCameraCount(std::uint32_t* count) override;
    Result sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) override;
    Result sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive, void* reserved2,
                         std::uint32_t mode) override;
    Result sdkCloseCamera(CameraHandle camera) override;
    Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                         std::uint32_t reserved) override;
    Result sdkCloseStream(StreamHandle stream) override;
    Result sdkStartStream(StreamHandle stream, std::uint32_t mode) override;
    Result sdkStopStream(StreamHandle stream) override;
    Result sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) override;
    Result sdkReleaseRequest(StreamHandle stream, RequestHandle request) override;
    Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) override;
    Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                   std::uint32_t* size) override;
    Result sdkFlushWaitQueue(StreamHandle stream) override;
    // Frame id, camera and capture time and status of the last take's buffer.
    bool frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) override;
    Result sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) override;
    Result sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) override;
    Result sdkGetWidth(CameraHandle camera, std::uint32_t* width) override;
    Result sdkSetWidth(CameraHandle camera, std::uint32_t width) override;
    Result sdkGetHeight(CameraHandle camera, std::uint32_t* height) override;
    Result sdkSetHeight(CameraHandle camera, std::uint32_t height) override;
    Result sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) override;
    Result sdkGetTriggerMode(CameraHandle camera, bool* on) override;
    Result sdkSetTriggerMode(CameraHandle camera, bool on) override;
    Result sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) override;
    Result sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) override;
    Result sdkExecuteSoftwareTrigger(CameraHandle camera) override;
    Result sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) override;
    Result sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) override;
    Result sdkGetExposureTime(CameraHandle camera, double* value) override;
    Result sdkSetExposureTime(CameraHandle camera, double value) override;
    Result sdkGetGain(CameraHandle camera, double* value) override;
    Result sdkSetGain(CameraHandle camera, double value) override;
    Result sdkGetBlackLevel(CameraHandle camera, double* value) override;
    Result sdkSetBlackLevel(CameraHandle camera, double value) override;
    Result sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) override;
    Result sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) override;

private:
    struct CameraSlot {
        std::shared_ptr<CameraConnection> connection;
        bool streamOpen = false;
    };
    struct StreamSlot {
        std::shared_ptr<AravisStream> stream;
        std::shared_ptr<CameraSlot> owner;
    };

    void ensureEnumerated();
    std::shared_ptr<CameraSlot> findCamera(CameraHandle handle);
    std::shared_ptr<AravisStream> findStream(StreamHandle handle);
    // Runs a feature access on an open camera under its feature lock.
    template <typename Access>
    Result onCamera(CameraHandle handle, Access&& access);
    // The same for a control write: a refusal is logged (level 3) with the feature,
    // the value and the camera's reason.
    template <typename Access>
    Result onCameraWrite(CameraHandle handle, const char* operation, Access&& access);
    template <typename Access>
    Result onStream(StreamHandle handle, Access&& access);

    std::mutex mutex_;  // guards everything below; never held across camera traffic
    bool initialized_ = false;
    bool enumerated_ = false;
    std::chrono::steady_clock::time_point enumeratedAt_;
    std::vector<DiscoveredCamera> cameras_;
    std::map<CameraHandle, std::shared_ptr<CameraSlot>> openCameras_;
    std::map<StreamHandle, StreamSlot> streams_;
    std::map<std::string, std::weak_ptr<CameraConnection>> connections_;
};

}  // namespace Tavri::aravis
