// The camera's settings as a host settings tree, in both directions.

#include <boost/algorithm/string/predicate.hpp>
#include <locale>

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "settings/SettingsOld.h"

namespace Tavri {

using detail::formatMessage;
namespace Camera = SettingsOld::Camera;

namespace {

// A received value names a word when it contains it, ignoring case.
bool names(const std::string& value, const std::string& word) {
    return boost::algorithm::icontains(value, word, std::locale());
}

}  // namespace

const TSettings TavriCameraToshibaTeli::settings() {
    TSettings tree("");
    tree.addString(Camera::BayerLayout, Camera::BayerLayoutValues::BGGR, "");

    double exposure = 0.0;
    sdk.sdkGetExposureTime(cameraHandle, &exposure);
    tree.addDouble(SettingsOld::ExposureTime, exposure, "");

    std::string colorMode;
    switch (static_cast<ImageType>(mode)) {
        case ImageType::Gray: colorMode = Camera::ColorModeValues::Gray; break;
        case ImageType::Color: colorMode = Camera::ColorModeValues::Color; break;
        case ImageType::Raw: colorMode = Camera::ColorModeValues::Raw; break;
        default: TAVRI_LOG(3, "Illegal color mode"); break;
    }
    tree.addString(Camera::ColorMode, colorMode, "");

    double gain = 0.0;
    sdk.sdkGetGain(cameraHandle, &gain);
    double blackLevel = 0.0;
    sdk.sdkGetBlackLevel(cameraHandle, &blackLevel);
    double red = 0.0;
    sdk.sdkGetBalanceRatio(cameraHandle, BalanceSelector::Red, &red);
    double blue = 0.0;
    sdk.sdkGetBalanceRatio(cameraHandle, BalanceSelector::Blue, &blue);
    tree.addDouble(Camera::Gain, gain, "");
    tree.addDouble(Camera::BlackLevel, blackLevel, "");
    tree.addDouble(SettingsOld::RedBalance, red, "");
    tree.addDouble(SettingsOld::BlueBalance, blue, "");

    bool triggerMode = false;
    sdk.sdkGetTriggerMode(cameraHandle, &triggerMode);
    namespace Types = Camera::TriggerTypeValues;
    tree.addString(Camera::TriggerType,
                   triggerMode ? Types::Hardware : (softwareTrigger ? Types::Software : Types::NoTrigger), "");

    std::uint32_t activation = 0;
    sdk.sdkGetTriggerActivation(cameraHandle, &activation);
    namespace Polarities = Camera::TriggerPolarityValues;
    tree.addString(Camera::TriggerPolarity,
                   activation == 0   ? Polarities::FallingEdge
                   : activation == 1 ? Polarities::RisingEdge
                                     : std::string(),
                   "");
    return tree;
}

bool TavriCameraToshibaTeli::updateSettings(const TSettings& settings) {
    TAVRI_LOG(1, "Updating camera settings");
    if (!isInitialized) {
        TAVRI_LOG(3, "Could not update settings since camera was not yet initialized");
        return false;
    }

    if (settings.has(SettingsOld::ExposureTime)) {
        const double exposure = settings[SettingsOld::ExposureTime].toDouble();
        if (exposure == 0.0)
            TAVRI_LOG(3, "Received exposure time of 0 - skipping update");
        else
            setExposureTime(exposure);
    }

    if (settings.has(Camera::Gain)) sdk.sdkSetGain(cameraHandle, settings[Camera::Gain].toDouble());

    if (settings.has(Camera::ColorMode)) {
        const std::string value = settings[Camera::ColorMode].toString();
        if (names(value, Camera::ColorModeValues::Gray))
            mode = static_cast<std::int32_t>(ImageType::Gray);
        else if (names(value, Camera::ColorModeValues::Color))
            mode = static_cast<std::int32_t>(ImageType::Color);
        else if (names(value, Camera::ColorModeValues::Raw))
            mode = static_cast<std::int32_t>(ImageType::Raw);
        else
            throw ArgumentInvalidException("Invalid color mode", "camSettings[SettingsOld::Camera::ColorMode]", value);
    }

    if (settings.has(Camera::BlackLevel)) setBlackLevel(settings[Camera::BlackLevel].toDouble());
    if (settings.has(SettingsOld::BlueBalance)) setBlueBalance(settings[SettingsOld::BlueBalance].toDouble());
    if (settings.has(SettingsOld::RedBalance)) setRedBalance(settings[SettingsOld::RedBalance].toDouble());

    if (settings.has(Camera::TriggerType)) {
        namespace Types = Camera::TriggerTypeValues;
        const std::string value = settings[Camera::TriggerType].toString();
        if (names(value, Types::Hardware)) {
            setCameraTriggerHardware();
        } else if (names(value, Types::Software)) {
            setCameraTriggerSoftware();
        } else if (names(value, Types::NoTrigger)) {
            TAVRI_LOG(3, "Cannot set trigger to none; using software trigger instead");
            setCameraTriggerSoftware();
        } else {
            TAVRI_LOG(3, formatMessage("Value for trigger type not recognized: %s", value));
        }
    }

    if (settings.has(Camera::TriggerPolarity)) {
        namespace Polarities = Camera::TriggerPolarityValues;
        const std::string value = settings[Camera::TriggerPolarity].toString();
        if (names(value, Polarities::FallingEdge)) {
            sdk.sdkSetTriggerActivation(cameraHandle, 0);
            TAVRI_LOG(1, "Trigger activation set to falling edge");
        } else if (names(value, Polarities::RisingEdge)) {
            sdk.sdkSetTriggerActivation(cameraHandle, 1);
            TAVRI_LOG(1, "Trigger activation set to rising edge");
        } else {
            TAVRI_LOG(3, formatMessage("Value for trigger polarity not recognized: %s", value));
        }
    }
    return true;
}

}  // namespace Tavri
