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

#include "sdk/ControlRanges.h"
#include "sdk/FrameInfo.h"
#include "sdk/TransportAddress.h"
#include "sdk/TeliSdk.h"
#include "sdk/aravis/AravisStream.h"
#include "sdk/aravis/CameraConnection.h"
#include "sdk/aravis/Discovery.h"
#include "sdk/aravis/OncePerRun.h"

namespace Tavri::aravis {

class AravisSdk final : public TeliSdk,
                        public FrameInfoSource,
                        public ControlRangeSource,
                        public TransportAddressSource {
public:
    // A device list younger than this is reused: the driver counts cameras up to three
    // times for one open, and each GigE discovery round waits out about a second. A
    // camera that comes or goes is seen once the list is older, or after an open that
    // failed on it.
    static constexpr std::chrono::seconds kDeviceListMaxAge{5};

    AravisSdk() = default;
    ~AravisSdk() override;

    // The 37 operations of sdk/SdkOperations.h (spelt out in sdk/TeliSdk.h).
    TAVRI_SDK_OVERRIDES

    // Frame id, camera and capture time and status of the last take's buffer.
    bool frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) override;

    // Min, max and increment of the GenICam feature behind the control.
    bool controlRange(CameraHandle camera, Control control, ControlRange* range) override;

    // The device address Aravis found the camera at.
    std::string transportAddress(std::uint32_t index) override;

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
    // Refusals already told at level 3, by device id and text.
    OncePerRun toldRefusals_;
};

}  // namespace Tavri::aravis
