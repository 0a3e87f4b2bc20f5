#include "sdk/aravis/Discovery.h"

#include <arv.h>

#include <boost/format.hpp>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <tuple>

#include "TavriCommon/Logger.h"

namespace Tavri::aravis {
namespace {

std::string text(const char* value) { return value ? value : ""; }

// Aravis's device list is process-wide and not safe to refresh and read at once.
std::mutex deviceListMutex;

}  // namespace

std::vector<DiscoveredCamera> discoverCameras() {
    std::vector<DiscoveredCamera> cameras;
    const auto start = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> lock(deviceListMutex);
        arv_update_device_list();
        const unsigned count = arv_get_n_devices();
        cameras.reserve(count);
        for (unsigned i = 0; i < count; ++i) {
            DiscoveredCamera camera;
            camera.deviceId = text(arv_get_device_id(i));
            camera.vendor = text(arv_get_device_vendor(i));
            camera.model = text(arv_get_device_model(i));
            camera.serial = text(arv_get_device_serial_nbr(i));
            camera.address = text(arv_get_device_address(i));
            if (camera.serial.empty()) camera.serial = camera.deviceId;
            if (!camera.deviceId.empty()) cameras.push_back(std::move(camera));
        }
    }
    // One line per round: each costs the GigE discovery time-out, so the log shows
    // where an open spends its time.
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    TAVRI_LOG(1, (boost::format("Aravis: discovery found %d cameras in %d ms") % cameras.size() % ms.count()).str());
    std::sort(cameras.begin(), cameras.end(), [](const DiscoveredCamera& a, const DiscoveredCamera& b) {
        return std::tie(a.serial, a.deviceId) < std::tie(b.serial, b.deviceId);
    });
    return cameras;
}

}  // namespace Tavri::aravis
