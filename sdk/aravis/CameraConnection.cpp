#include "sdk/aravis/CameraConnection.h"

#include <boost/format.hpp>

#include "TavriCommon/Logger.h"

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/ErrorMapping.h"

namespace Tavri::aravis {
namespace {
// A camera that times out this many times in a row is taken for gone, so later
// calls answer at once instead of each waiting out the control time-out again.
constexpr int kTimeoutsBeforeLost = 2;
}  // namespace

std::shared_ptr<CameraConnection> CameraConnection::open(const std::string& deviceId, Result& result) {
    GErrorSlot error;
    ArvCamera* camera = arv_camera_new(deviceId.c_str(), error.out());
    if (!camera) {
        result = error ? resultFromError(error.get()) : AravisResult::OpenFailed;
        if (result == AravisResult::Success || result == AravisResult::DeviceError)
            result = AravisResult::OpenFailed;
        return nullptr;
    }
    result = AravisResult::Success;
    return std::shared_ptr<CameraConnection>(new CameraConnection(deviceId, camera));
}

CameraConnection::CameraConnection(std::string deviceId, ArvCamera* camera)
    : deviceId_(std::move(deviceId)), camera_(camera) {
    ArvDevice* device = arv_camera_get_device(camera);
    if (device)
        controlLostHandler_ =
            g_signal_connect(device, "control-lost", G_CALLBACK(&CameraConnection::onControlLost), this);
}

CameraConnection::~CameraConnection() {
    if (controlLostHandler_) {
        if (ArvDevice* device = arv_camera_get_device(camera_.get()))
            g_signal_handler_disconnect(device, controlLostHandler_);
    }
    // Dropping the camera joins Aravis's heartbeat thread while `this` still lives.
    camera_.reset();
}

// Aravis's heartbeat thread: the camera stopped answering, or gave control to another host.
void CameraConnection::onControlLost(ArvDevice*, gpointer self) {
    static_cast<CameraConnection*>(self)->markLost("control lost: heartbeat unanswered");
}

void CameraConnection::noteUnreachable() {
    if (++timeouts_ >= kTimeoutsBeforeLost) markLost("control requests time out");
}

void CameraConnection::markLost(const char* why) {
    if (lost_.exchange(true)) return;
    TAVRI_LOG(3, (boost::format("Aravis: camera %s lost (%s); every later call on it fails with %d") % deviceId_ %
                  why % SdkResult::NotResponding)
                     .str());
}

}  // namespace Tavri::aravis
