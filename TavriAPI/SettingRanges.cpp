// What the backend tells beside the SDK's operations: the ranges of the numeric
// settings and where a listed camera is reached.

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "settings/SettingsOld.h"

namespace Tavri {

std::vector<SettingRange> TavriCameraToshibaTeli::settingRanges() {
    static const std::pair<std::string, Control> kKeys[] = {
        {SettingsOld::ExposureTime, Control::ExposureTime},  {SettingsOld::Camera::Gain, Control::Gain},
        {SettingsOld::Camera::BlackLevel, Control::BlackLevel}, {SettingsOld::RedBalance, Control::RedBalance},
        {SettingsOld::BlueBalance, Control::BlueBalance},
    };
    std::vector<SettingRange> ranges;
    if (!isInitialized || !controlRangeSource) return ranges;
    for (const auto& [key, control] : kKeys) {
        ControlRange range;
        if (controlRangeSource->controlRange(cameraHandle, control, &range))
            ranges.push_back({key, range.min, range.max, range.increment});
    }
    return ranges;
}

std::string TavriCameraToshibaTeli::transportAddress(const std::string& serialNumber) {
    std::uint32_t count = 0;
    if (!transportAddressSource || sdk.sdkGetCameraCount(&count) != SdkResult::Success) return {};
    for (std::uint32_t i = 0; i < count; ++i) {
        CameraInfoRecord record;
        record.clear();
        if (sdk.sdkGetCameraInfo(nullptr, i, &record) == SdkResult::Success && record.serialNumber() == serialNumber)
            return transportAddressSource->transportAddress(i);
    }
    return {};
}

}  // namespace Tavri
