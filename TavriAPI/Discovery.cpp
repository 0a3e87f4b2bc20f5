// Which cameras are attached, which one has a serial number, and whether ours still
// answers.

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"

namespace Tavri {

using detail::formatMessage;

std::vector<InternalCameraInfo> TavriCameraToshibaTeli::getInfoInternalCameras() const {
    std::vector<InternalCameraInfo> cameras;
    std::uint32_t count = 0;
    if (sdk.sdkGetCameraCount(&count) != SdkResult::Success)
        throw RuntimeException("Failed to get number of internal cameras");
    for (std::uint32_t i = 0; i < count; ++i) {
        CameraInfoRecord record;
        record.clear();
        if (sdk.sdkGetCameraInfo(nullptr, i, &record) != SdkResult::Success) continue;
        cameras.emplace_back(record.firstText(), record.secondText(), record.serialNumber());
    }
    return cameras;
}

int TavriCameraToshibaTeli::getCameraIndex(const char* serialNumber) {
    std::uint32_t count = 0;
    if (sdk.sdkGetCameraCount(&count) != SdkResult::Success)
        throw RuntimeException("Failed to get number of internal cameras");
    const std::string wanted(serialNumber);
    const auto communicationFailed = [](Result code) {
        TAVRI_LOG(3, formatMessage("Failed to communicate with a connected camera. The return code was: %d", code));
    };

    CameraInfoRecord record;
    for (std::uint32_t i = 0; i < count; ++i) {
        record.clear();
        const Result result = sdk.sdkGetCameraInfo(nullptr, i, &record);
        if (result == SdkResult::NotResponding) {
            TAVRI_LOG(1,
                      "A camera did not respond when attempting to read information about it. Attempting to "
                      "terminate it's inoperative connection.");
            CameraHandle camera = nullptr;
            const Result opened = sdk.sdkOpenCamera(i, &camera, nullptr, true, nullptr, 1);
            if (opened != SdkResult::Success && opened != SdkResult::CameraAlreadyOpen) {
                communicationFailed(opened);
                continue;
            }
            if (const Result closed = sdk.sdkCloseCamera(camera); closed != SdkResult::Success) {
                communicationFailed(closed);
                continue;
            }
            if (const Result reread = sdk.sdkGetCameraInfo(nullptr, i, &record); reread != SdkResult::Success) {
                communicationFailed(reread);
                continue;
            }
        } else if (result != SdkResult::Success) {
            TAVRI_LOG(1, formatMessage(
                             "Failed to retrieve information about about a connected camera. The return code was: %d",
                             result));
            continue;
        }
        if (record.serialNumber() == wanted) return static_cast<int>(i);
    }
    return -1;
}

const char* TavriCameraToshibaTeli::driver() { return "toshiba_teli"; }

bool TavriCameraToshibaTeli::isReal() const { return true; }

bool TavriCameraToshibaTeli::isConnected() {
    if (!isInitialized) {
        if (sdk.sdkGetCameraCount(&cameraCount) != SdkResult::Success || cameraCount == 0) {
            TAVRI_LOG(1, "Failed to get number of cameras.");
            return false;
        }
    }
    CameraInfoRecord record;
    if (sdk.sdkGetCameraInfo(cameraHandle, 0, &record) != SdkResult::Success) {
        TAVRI_LOG(1, DriverText::CameraInfoFailed);
        return false;
    }
    return true;
}

bool TavriCameraToshibaTeli::checkPresence() { return isConnected(); }

}  // namespace Tavri
