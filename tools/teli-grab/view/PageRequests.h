#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "TavriAPI/ImageType.h"
#include "TavriAPI/SettingRanges.h"
#include "TavriCommon/Settings.h"

namespace TeliGrab::View {

// Input from the page that is refused before anything reaches the camera (HTTP 400).
class RequestError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A change of the camera's settings: the colour mode goes through setMode (only that
// sends the pixel format), everything else through updateSettings.
struct SettingsChange {
    std::optional<Tavri::ImageType> mode;
    Tavri::TSettings tree;
    bool hasTreeKeys = false;
};

// A JSON object of the page's controls, e.g. {"ExposureTime": 5000}: numbers for
// ExposureTime, Camera/Gain, Camera/BlackLevel, RedBalance and BlueBalance; one of the
// catalogue's words for Camera/ColorMode, Camera/TriggerType and Camera/TriggerPolarity.
// Unknown keys, wrong kinds and unknown words are refused with RequestError.
SettingsChange parseSettingsChange(const std::string& body);

// A settings file as `teli-grab settings` prints it. The tree goes to updateSettings
// whole, as `teli-grab apply` does; a colour mode in it also goes to setMode. A file
// that is not such a tree, or holds none of the camera's keys, is refused.
SettingsChange parseSettingsFile(const std::string& text);

// `text` as a whole number from `lowest` to `highest`; RequestError naming `what` otherwise.
int parseWholeNumber(const std::string& text, const char* what, int lowest, int highest);

// The length of a sequence: a whole number from 1 to the driver's request pool size.
constexpr int kMaxSequenceLength = 120;
int parseSequenceCount(const std::string& text);

// The camera's settings table as the page builds its controls from it:
// {"controls": [{"key", "kind": "number" or "word", "words": [...], "writable", "label"}]}.
// A number has "min", "max" and "increment" (when the camera names a step) where
// `ranges` tells its range.
nlohmann::json controlsJson(const std::vector<Tavri::SettingRange>& ranges);

}  // namespace TeliGrab::View
