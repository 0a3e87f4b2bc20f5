#include "sdk/aravis/CameraConnection.h"

#include <boost/format.hpp>

#include <algorithm>

#include "TavriCommon/Logger.h"

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/ControlChannel.h"
#include "sdk/aravis/ErrorMapping.h"

namespace Tavri::aravis {
namespace {
// A camera that times out this many times in a row is taken for gone, so later
// calls answer at once instead of each waiting out the control time-out again.
constexpr int kTimeoutsBeforeLost = 2;
}  // namespace

std::shared_ptr<CameraConnection> CameraConnection::open(const std::string& deviceId, Result& result) {
    // One open at a time, so the socket a GigE open makes is known for its own.
    static std::mutex openMutex;
    std::unique_lock<std::mutex> lock(openMutex);
    const gvcp::Sockets before = gvcp::datagramSockets();
    GErrorSlot error;
    ArvCamera* camera = arv_camera_new(deviceId.c_str(), error.out());
    std::optional<gvcp::ControlSocket> control;
    ArvDevice* device = camera ? arv_camera_get_device(camera) : nullptr;
    if (ARV_IS_GV_DEVICE(device)) {
        control = gvcp::findControlSocket(ARV_GV_DEVICE(device), before);
        if (!control)
            TAVRI_LOG(1, "Aravis: control socket of camera " + deviceId +
                             " not told apart; should it be lost, closing it waits out time-outs");
    }
    lock.unlock();
    if (!camera) {
        result = error ? resultFromError(error.get()) : AravisResult::OpenFailed;
        if (result == AravisResult::Success || result == AravisResult::DeviceError)
            result = AravisResult::OpenFailed;
        return nullptr;
    }
    // GigE grants one controller: without control nothing can be set or streamed, and
    // the stream would only fail later, without its cause.
    if (ARV_IS_GV_DEVICE(device) && !arv_gv_device_is_controller(ARV_GV_DEVICE(device))) {
        TAVRI_LOG(3, "Aravis: camera " + deviceId + " is held by another controller (a program on this or another "
                                                    "host has it open); not opened");
        g_object_unref(camera);
        result = AravisResult::AccessDenied;
        return nullptr;
    }
    result = AravisResult::Success;
    return std::shared_ptr<CameraConnection>(new CameraConnection(deviceId, camera, control));
}

CameraConnection::CameraConnection(std::string deviceId, ArvCamera* camera,
                                   std::optional<gvcp::ControlSocket> control)
    : deviceId_(std::move(deviceId)), camera_(camera), control_(control) {
    ArvDevice* device = arv_camera_get_device(camera);
    if (device)
        controlLostHandler_ =
            g_signal_connect(device, "control-lost", G_CALLBACK(&CameraConnection::onControlLost), this);
    if (ARV_IS_GV_DEVICE(device)) watch_ = std::thread([this, device] { watchCalls(ARV_GV_DEVICE(device)); });
}

CameraConnection::~CameraConnection() {
    if (watch_.joinable()) {
        {
            std::lock_guard<std::mutex> lock(watchMutex_);
            stopWatch_ = true;
        }
        watchWake_.notify_all();
        watch_.join();
    }
    if (controlLostHandler_) {
        if (ArvDevice* device = arv_camera_get_device(camera_.get()))
            g_signal_handler_disconnect(device, controlLostHandler_);
    }
    // Dropping the camera joins Aravis's heartbeat thread while `this` still lives.
    camera_.reset();
}

CameraConnection::CallWatch::CallWatch(CameraConnection& connection) : connection_(connection) {
    if (!connection_.watch_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(connection_.watchMutex_);
        connection_.callSince_ = Clock::now();
    }
    connection_.watchWake_.notify_all();
}

CameraConnection::CallWatch::~CallWatch() {
    if (!connection_.watch_.joinable()) return;
    std::lock_guard<std::mutex> lock(connection_.watchMutex_);
    connection_.callSince_.reset();
}

// Aravis waits 2.5 s for each unanswered request, and calls come one after another;
// a check of our own, beside the slow call, tells a busy camera from one that is gone.
void CameraConnection::watchCalls(ArvGvDevice* device) {
    std::unique_lock<std::mutex> lock(watchMutex_);
    Clock::time_point lastCheck{};
    while (!stopWatch_) {
        if (!callSince_) {
            watchWake_.wait(lock);
            continue;
        }
        const auto due = std::max(*callSince_, lastCheck) + kSlowCall;
        if (Clock::now() < due) {
            watchWake_.wait_until(lock, due);
            continue;
        }
        lock.unlock();
        const bool present = gvcp::answers(device);
        lock.lock();
        lastCheck = Clock::now();
        if (!present) {
            lock.unlock();
            markLost("no answer to a presence check during a slow call");
            if (lost_.load()) return;
            lock.lock();
        }
    }
}

// Aravis's heartbeat thread: the camera stopped answering, or gave control to another host.
void CameraConnection::onControlLost(ArvDevice*, gpointer self) {
    static_cast<CameraConnection*>(self)->markLost("control lost: heartbeat unanswered");
}

void CameraConnection::noteUnreachable() {
    if (++timeouts_ >= kTimeoutsBeforeLost) markLost("control requests time out");
}

Result CameraConnection::checkPresence() {
    if (lost_.load()) return SdkResult::NotResponding;
    ArvDevice* device = arv_camera_get_device(camera_.get());
    if (!ARV_IS_GV_DEVICE(device) || gvcp::answers(ARV_GV_DEVICE(device))) return SdkResult::Success;
    markLost("no answer to a presence check");
    return lost_.load() ? SdkResult::NotResponding : SdkResult::Success;
}

bool CameraConnection::streamedRecently() const {
    const Clock::rep last = lastStreamActivity_.load();
    return last != 0 && Clock::now() - Clock::time_point(Clock::duration(last)) < kStreamSignOfLife;
}

void CameraConnection::markLost(const char* why) {
    if (streamedRecently()) {
        TAVRI_LOG(1, (boost::format("Aravis: camera %s slow to answer (%s), but its frames still come: not lost") %
                      deviceId_ % why)
                         .str());
        return;
    }
    if (lost_.exchange(true)) return;
    // Nothing more is asked of a lost camera but what Aravis does when the stream and
    // the camera are dropped; with the channel cut, that costs no time-outs.
    if (control_ && !gvcp::cut(*control_))
        TAVRI_LOG(1, "Aravis: control socket of camera " + deviceId_ + " gone; closing it waits out time-outs");
    TAVRI_LOG(3, (boost::format("Aravis: camera %s lost (%s); every later call on it fails with %d") % deviceId_ %
                  why % SdkResult::NotResponding)
                     .str());
}

}  // namespace Tavri::aravis
