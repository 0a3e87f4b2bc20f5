// Image geometry, colour mode, the numeric controls and the trigger set-ups.

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "settings/SettingsOld.h"

namespace Tavri {

using detail::failedTo;
using detail::formatMessage;

int TavriCameraToshibaTeli::getRows() {
    std::uint32_t height = 1200;
    if (sdk.sdkGetHeight(cameraHandle, &height) != SdkResult::Success)
        throw RuntimeException("Could not get number of camera rows.");
    return static_cast<int>(height);
}

int TavriCameraToshibaTeli::getCols() {
    std::uint32_t width = 1920;
    if (sdk.sdkGetWidth(cameraHandle, &width) != SdkResult::Success)
        throw RuntimeException("Could not get number of camera columns");
    return static_cast<int>(width);
}

// The layout's number is the host's own: the position of the word in the host's
// word list for the Bayer layout setting.
int TavriCameraToshibaTeli::getBayerLayout() {
    namespace Camera = SettingsOld::Camera;
    namespace Layouts = SettingsOld::Camera::BayerLayoutValues;
    TGroupSettings layout("", "");
    layout.addString(Camera::BayerLayout, Layouts::BGGR, "");
    layout[Camera::BayerLayout].asString().setRange({Layouts::GRBG, Layouts::RGGB, Layouts::BGGR, Layouts::GBRG});
    return layout[Camera::BayerLayout].asString().getEnumValue();
}

ImageType TavriCameraToshibaTeli::getMode() { return static_cast<ImageType>(mode); }

void TavriCameraToshibaTeli::setMode(ImageType newMode) {
    mode = static_cast<std::int32_t>(newMode);
    switch (newMode) {
        case ImageType::Gray: sdk.sdkSetPixelFormat(cameraHandle, PixelFormat::Mono8); break;
        case ImageType::Color: sdk.sdkSetPixelFormat(cameraHandle, PixelFormat::RGB8); break;
        case ImageType::Raw: sdk.sdkSetPixelFormat(cameraHandle, PixelFormat::BayerBG8); break;
        default: break;  // no pixel format for an illegal mode
    }
    TAVRI_LOG(1, formatMessage("Color mode set to %d", mode));
}

double TavriCameraToshibaTeli::getExposureTime() {
    double exposure = 0.0;
    sdk.sdkGetExposureTime(cameraHandle, &exposure);
    return exposure;
}

void TavriCameraToshibaTeli::setExposureTime(double exposure) {
    if (sdk.sdkSetExposureTime(cameraHandle, exposure) != SdkResult::Success)
        throw RuntimeException("Failed to set camera exposure");
    TAVRI_LOG(1, formatMessage("Exposure time set to %d", exposure));
}

void TavriCameraToshibaTeli::setBlackLevel(double level) {
    if (sdk.sdkSetBlackLevel(cameraHandle, level) != SdkResult::Success) TAVRI_LOG(3, "Failed to set new black level");
    double readBack = 0.0;
    sdk.sdkGetBlackLevel(cameraHandle, &readBack);
    TAVRI_LOG(1, formatMessage("Attempted to set black level to %.2f. New black level read from camera: %.2f", level,
                               readBack));
}

void TavriCameraToshibaTeli::setRedBalance(double ratio) {
    setBalanceRatio(BalanceSelector::Red, ratio,
                    "Attempted to set red balance to %.2f. New red balance read from camera: %.2f");
}

void TavriCameraToshibaTeli::setBlueBalance(double ratio) {
    setBalanceRatio(BalanceSelector::Blue, ratio,
                    "Attempted to set blue balance to %.2f. New blue balance read from camera: %.2f");
}

void TavriCameraToshibaTeli::setBalanceRatio(std::uint32_t selector, double ratio, const char* readBackMessage) {
    sdk.sdkSetBalanceRatio(cameraHandle, selector, ratio);
    double readBack = 0.0;
    sdk.sdkGetBalanceRatio(cameraHandle, selector, &readBack);
    TAVRI_LOG(1, formatMessage(readBackMessage, ratio, readBack));
}

void TavriCameraToshibaTeli::setCameraTriggerHardware() {
    TAVRI_LOG(1, "Setting trigger type to hardware");
    if (sdk.sdkSetTriggerMode(cameraHandle, true) != SdkResult::Success) TAVRI_LOG(3, failedTo("set camera trigger mode"));
    if (sdk.sdkSetTriggerSource(cameraHandle, TriggerSourceCode::Hardware) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set camera trigger source"));
    if (sdk.sdkSetTriggerActivation(cameraHandle, 0) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set camera trigger activation"));
    if (sdk.sdkSetTriggerSequence(cameraHandle, 0) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set camera trigger sequence"));
    softwareTrigger = false;
}

void TavriCameraToshibaTeli::setCameraTriggerSoftware() {
    TAVRI_LOG(1, "Setting trigger type to software");
    if (sdk.sdkSetTriggerMode(cameraHandle, false) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set camera trigger mode"));
    if (sdk.sdkSetTriggerSource(cameraHandle, TriggerSourceCode::Software) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set camera trigger source"));
    softwareTrigger = true;
}

}  // namespace Tavri
