#pragma once
// One open camera: the Aravis camera object, the lock that serialises every feature
// access on it (a selector and the value it selects must not be split by another
// thread), and whether the camera was lost.

#include <arv.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "sdk/TeliSdk.h"
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
    // answers NotResponding without being asked.
    template <typename Access>
    Result withFeatures(Access&& access) {
        // Asked before the lock too: a call stuck in a control time-out holds it, and a
        // lost camera must answer at once.
        if (lost_.load()) return SdkResult::NotResponding;
        std::lock_guard<std::mutex> lock(featureMutex_);
        if (lost_.load()) return SdkResult::NotResponding;
        const Result result = access(camera_.get());
        if (result == SdkResult::NotResponding)
            noteUnreachable();
        else
            timeouts_ = 0;
        return result;
    }

    bool lost() const { return lost_.load(); }

private:
    CameraConnection(std::string deviceId, ArvCamera* camera);
    static void onControlLost(ArvDevice* device, gpointer self);
    void noteUnreachable();
    // Marks the camera lost and says so once, with why.
    void markLost(const char* why);

    std::string deviceId_;
    GObjectPtr<ArvCamera> camera_;
    gulong controlLostHandler_ = 0;
    std::mutex featureMutex_;
    std::atomic<bool> lost_{false};
    int timeouts_ = 0;  // consecutive control time-outs, under featureMutex_
};

}  // namespace Tavri::aravis
