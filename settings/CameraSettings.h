#pragma once
// The camera's settings, one row each: the keys the driver describes in settings() and
// reads in updateSettings, with the catalogue's keys and words. The driver's description
// and application, checks of a user's settings and the live view's controls come from here.

#include <boost/algorithm/string/predicate.hpp>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#include "settings/SettingsOld.h"

namespace CameraSettings {

struct Setting {
    std::string key;
    bool numeric;  // a number, else a word
    // A writable word's words, in the order the driver numbers them (colour mode as
    // ImageType, trigger polarity as the camera's activation); a read-only word's
    // words are the ones it is described with.
    std::vector<std::string> words;
    bool writable;      // false: described, kept as it is
    std::string label;  // a control's caption
};

// One table per module, hidden from the others: a plug-in never takes its host's table
// or gives it its own, so each goes with the module that made it, and an unloaded
// plug-in neither leaves a reader without one nor leaks one.
#if defined(__GNUC__) && !defined(_WIN32)
#define CAMERA_SETTINGS_MODULE_LOCAL __attribute__((visibility("hidden")))
#else
#define CAMERA_SETTINGS_MODULE_LOCAL
#endif

CAMERA_SETTINGS_MODULE_LOCAL inline const std::vector<Setting>& table() {
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
        {Camera::BayerLayout, false, {Camera::BayerLayoutValues::BGGR}, false, "Bayer layout"},
    };
    return rows;
}

// The row of `key`; a key without a row is a fault of the program, not of its input.
inline const Setting& row(const std::string& key) {
    for (const auto& setting : table())
        if (setting.key == key) return setting;
    throw std::logic_error("no camera setting '" + key + "'");
}

// How a received value is read against words: it names a word when it contains it,
// ignoring case. The position of the first word named, or -1 when it names none.
inline int namedWord(const std::vector<std::string>& words, const std::string& value) {
    for (std::size_t i = 0; i < words.size(); ++i)
        if (boost::algorithm::icontains(value, words[i], std::locale())) return static_cast<int>(i);
    return -1;
}
inline int namedWord(const Setting& setting, const std::string& value) { return namedWord(setting.words, value); }

// The word at `position`, or an empty word for a position the row has no word at.
inline std::string wordAt(const Setting& setting, long position) {
    return position >= 0 && static_cast<std::size_t>(position) < setting.words.size() ? setting.words[position]
                                                                                      : std::string();
}

}  // namespace CameraSettings
