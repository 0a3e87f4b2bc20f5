// The camera's settings as a host settings tree, in both directions. Keys and words
// come from the settings table; this file says how each is read from and written to
// the camera, in the order hosts have always been given and applied them.

#include <cstdint>
#include <functional>

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "settings/CameraSettings.h"

namespace Tavri {

using CameraSettings::namedWord;
using CameraSettings::row;
using CameraSettings::Setting;
using CameraSettings::wordAt;
using detail::formatMessage;
namespace Camera = SettingsOld::Camera;

const TSettings TavriCameraToshibaTeli::settings() {
    TSettings tree("");
    // Each number is read from the camera as it is described; a failed read describes 0.
    const auto number = [&](const Setting& setting, const std::function<void(double*)>& read) {
        double value = 0.0;
        read(&value);
        tree.addDouble(setting.key, value, "");
    };
    const auto word = [&](const Setting& setting, std::int64_t position) {
        tree.addString(setting.key, wordAt(setting, position), "");
    };

    word(row(Camera::BayerLayout), 0);
    number(row(SettingsOld::ExposureTime), [&](double* v) { sdk.sdkGetExposureTime(cameraHandle, v); });

    // The table's colour words are in ImageType's order; an illegal mode has no word.
    const Setting& colorMode = row(Camera::ColorMode);
    if (wordAt(colorMode, mode).empty()) TAVRI_LOG(3, "Illegal color mode");
    word(colorMode, mode);

    number(row(Camera::Gain), [&](double* v) { sdk.sdkGetGain(cameraHandle, v); });
    number(row(Camera::BlackLevel), [&](double* v) { sdk.sdkGetBlackLevel(cameraHandle, v); });
    number(row(SettingsOld::RedBalance),
           [&](double* v) { sdk.sdkGetBalanceRatio(cameraHandle, BalanceSelector::Red, v); });
    number(row(SettingsOld::BlueBalance),
           [&](double* v) { sdk.sdkGetBalanceRatio(cameraHandle, BalanceSelector::Blue, v); });

    // Trigger words in the table's order: hardware, software, none.
    bool triggerMode = false;
    sdk.sdkGetTriggerMode(cameraHandle, &triggerMode);
    word(row(Camera::TriggerType), triggerMode ? 0 : (softwareTrigger ? 1 : 2));

    // Polarity words in the camera's activation order: falling edge 0, rising edge 1.
    std::uint32_t activation = 0;
    sdk.sdkGetTriggerActivation(cameraHandle, &activation);
    word(row(Camera::TriggerPolarity), activation);
    return tree;
}

bool TavriCameraToshibaTeli::updateSettings(const TSettings& settings) {
    TAVRI_LOG(1, "Updating camera settings");
    if (!isInitialized) {
        TAVRI_LOG(3, "Could not update settings since camera was not yet initialized");
        return false;
    }
    // Each setting given is applied in turn; the others are left as they are.
    const auto given = [&](const Setting& setting, const std::function<void(const TSettings&)>& apply) {
        if (settings.has(setting.key)) apply(settings[setting.key]);
    };

    given(row(SettingsOld::ExposureTime), [&](const TSettings& value) {
        const double exposure = value.toDouble();
        if (exposure == 0.0)
            TAVRI_LOG(3, "Received exposure time of 0 - skipping update");
        else
            setExposureTime(exposure);
    });
    given(row(Camera::Gain), [&](const TSettings& value) { sdk.sdkSetGain(cameraHandle, value.toDouble()); });

    const Setting& colorMode = row(Camera::ColorMode);
    given(colorMode, [&](const TSettings& value) {
        const std::string text = value.toString();
        const int position = namedWord(colorMode, text);
        if (position < 0)
            throw ArgumentInvalidException("Invalid color mode", "camSettings[SettingsOld::Camera::ColorMode]", text);
        mode = position;  // the table's colour words are in ImageType's order
    });

    given(row(Camera::BlackLevel), [&](const TSettings& value) { setBlackLevel(value.toDouble()); });
    given(row(SettingsOld::BlueBalance), [&](const TSettings& value) { setBlueBalance(value.toDouble()); });
    given(row(SettingsOld::RedBalance), [&](const TSettings& value) { setRedBalance(value.toDouble()); });

    const Setting& triggerType = row(Camera::TriggerType);
    given(triggerType, [&](const TSettings& value) {
        const std::string text = value.toString();
        switch (namedWord(triggerType, text)) {
            case 0: setCameraTriggerHardware(); break;
            case 1: setCameraTriggerSoftware(); break;
            case 2:
                TAVRI_LOG(3, "Cannot set trigger to none; using software trigger instead");
                setCameraTriggerSoftware();
                break;
            default: TAVRI_LOG(3, formatMessage("Value for trigger type not recognized: %s", text));
        }
    });

    const Setting& polarity = row(Camera::TriggerPolarity);
    given(polarity, [&](const TSettings& value) {
        const std::string text = value.toString();
        const int activation = namedWord(polarity, text);  // the words are in activation order
        if (activation < 0) {
            TAVRI_LOG(3, formatMessage("Value for trigger polarity not recognized: %s", text));
            return;
        }
        sdk.sdkSetTriggerActivation(cameraHandle, static_cast<std::uint32_t>(activation));
        TAVRI_LOG(1, activation == 0 ? "Trigger activation set to falling edge"
                                     : "Trigger activation set to rising edge");
    });
    return true;
}

}  // namespace Tavri
