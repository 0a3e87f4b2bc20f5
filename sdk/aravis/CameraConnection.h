#pragma once
// One open camera: the Aravis camera object, the lock that serialises every feature
// access on it (a selector and the value it selects must not be split by another
// thread), and whether the camera was lost.

#include <arv.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "sdk/TeliSdk.h"
#include "sdk/aravis/ControlChannel.h"
#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis {

class CameraConnection {
public:
    // Opens the camera Aravis knows as deviceId; null with the reason in `result`.
    static std::shared_ptr<CameraConnection> open(const std::string& deviceId, Result& result);

    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;
    ~CameraConnection();

    const std::string& deviceId() const { return deviceId_; }
    ArvCamera* camera() const { return camera_.get(); }

    // Runs `access(ArvCamera*) -> Result` under the feature lock; a lost camera
    // answers NotResponding without being asked. On a GigE camera, a call that takes
    // longer than kSlowCall has the camera's presence checked beside it: a camera that
    // is gone is marked lost and its channel cut, which ends the call too.
    template <typename Access>
    Result withFeatures(Access&& access) {
        // Asked before the lock too: a call stuck in a control time-out holds it, and a
        // lost camera must answer at once.
        if (lost_.load()) return SdkResult::NotResponding;
        std::lock_guard<std::mutex> lock(featureMutex_);
        if (lost_.load()) return SdkResult::NotResponding;
        const Result result = [&] {
            const CallWatch watch(*this);
            return access(camera_.get());
        }();
        if (result == SdkResult::NotResponding)
            noteUnreachable();
        else
            timeouts_ = 0;
        return result;
    }

    bool lost() const { return lost_.load(); }

    // Told by the stream for every frame Aravis finished, whole or not: its packets
    // came, so the camera is there however slowly its control channel answers.
    void noteStreamActivity() { lastStreamActivity_.store(Clock::now().time_since_epoch().count()); }

    // Whether the camera still answers, within a short bound for a GigE camera and
    // beside any call still waiting on it; a camera that does not is marked lost.
    Result checkPresence();

    static constexpr std::chrono::milliseconds kSlowCall{300};
    // A camera whose frames came this recently is not taken for lost: a camera busy
    // sending, or losing stream packets, answers its control channel late.
    static constexpr std::chrono::milliseconds kStreamSignOfLife{500};

private:
    using Clock = std::chrono::steady_clock;

    // Tells the watch that a call on the camera is under way, for its lifetime.
    class CallWatch {
    public:
        explicit CallWatch(CameraConnection& connection);
        ~CallWatch();
        CallWatch(const CallWatch&) = delete;
        CallWatch& operator=(const CallWatch&) = delete;

    private:
        CameraConnection& connection_;
    };

    CameraConnection(std::string deviceId, ArvCamera* camera, std::optional<gvcp::ControlSocket> control);
    void watchCalls(ArvGvDevice* device);
    static void onControlLost(ArvDevice* device, gpointer self);
    void noteUnreachable();
    bool streamedRecently() const;
    // Marks the camera lost and says so once, with why; not while its frames still come.
    void markLost(const char* why);

    std::string deviceId_;
    GObjectPtr<ArvCamera> camera_;
    std::optional<gvcp::ControlSocket> control_;  // GigE only; cut when the camera is lost
    gulong controlLostHandler_ = 0;
    std::mutex featureMutex_;
    std::atomic<bool> lost_{false};
    std::atomic<Clock::rep> lastStreamActivity_{0};  // Clock's count; 0: never
    int timeouts_ = 0;  // consecutive control time-outs, under featureMutex_

    // The watch on slow calls (GigE cameras only).
    std::mutex watchMutex_;
    std::condition_variable watchWake_;
    std::optional<Clock::time_point> callSince_;  // under watchMutex_
    bool stopWatch_ = false;                      // under watchMutex_
    std::thread watch_;
};

}  // namespace Tavri::aravis
