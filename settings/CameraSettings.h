#pragma once
// The camera's settings, one row each: the keys the driver describes in settings() and
// reads in updateSettings, with the catalogue's keys and words. Checks of a user's
// settings and the live view's controls come from here.

#include <string>
#include <vector>

#include "settings/SettingsOld.h"

namespace CameraSettings {

struct Setting {
    std::string key;
    bool numeric;                    // a number, else a word
    std::vector<std::string> words;  // the words a writable word is recognised by
    bool writable;                   // false: described, kept as it is
    std::string label;               // a control's caption
};

inline const std::vector<Setting>& table() {
    namespace Camera = SettingsOld::Camera;
    static const std::vector<Setting> rows{
        {SettingsOld::ExposureTime, true, {}, true, "Exposure (µs)"},
        {Camera::Gain, true, {}, true, "Gain"},
        {Camera::BlackLevel, true, {}, true, "Black level"},
        {SettingsOld::RedBalance, true, {}, true, "Red balance"},
        {SettingsOld::BlueBalance, true, {}, true, "Blue balance"},
        {Camera::ColorMode,
         false,
         {Camera::ColorModeValues::Gray, Camera::ColorModeValues::Color, Camera::ColorModeValues::Raw},
         true,
         "Colour mode"},
        {Camera::TriggerType,
         false,
         {Camera::TriggerTypeValues::Hardware, Camera::TriggerTypeValues::Software,
          Camera::TriggerTypeValues::NoTrigger},
         true,
         "Trigger type"},
        {Camera::TriggerPolarity,
         false,
         {Camera::TriggerPolarityValues::FallingEdge, Camera::TriggerPolarityValues::RisingEdge},
         true,
         "Trigger polarity"},
        {Camera::BayerLayout, false, {}, false, "Bayer layout"},
    };
    return rows;
}

}  // namespace CameraSettings
