#include "sdk/aravis/Discovery.h"

#include <arv.h>

#include <algorithm>
#include <mutex>
#include <tuple>

namespace Tavri::aravis {
namespace {

std::string text(const char* value) { return value ? value : ""; }

// Aravis's device list is process-wide and not safe to refresh and read at once.
std::mutex deviceListMutex;

}  // namespace

std::vector<DiscoveredCamera> discoverCameras() {
    std::vector<DiscoveredCamera> cameras;
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
            if (camera.serial.empty()) camera.serial = camera.deviceId;
            if (!camera.deviceId.empty()) cameras.push_back(std::move(camera));
        }
    }
    std::sort(cameras.begin(), cameras.end(), [](const DiscoveredCamera& a, const DiscoveredCamera& b) {
        return std::tie(a.serial, a.deviceId) < std::tie(b.serial, b.deviceId);
    });
    return cameras;
}

}  // namespace Tavri::aravis
