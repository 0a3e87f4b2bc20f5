#pragma once

#include <string>
#include <vector>

#include "SettingsCheck.h"
#include "TavriCommon/Settings.h"

namespace TeliGrab {

// The numeric values asked for (the last one of each key counts) that the camera did
// not keep, as read back through settings(): one line each, "Camera/Gain: asked 1000,
// camera kept 0.0". Cameras round to their own increments, so a value within 1 % or
// 0.13 of what was asked counts as kept.
std::vector<std::string> valuesNotKept(const std::vector<SettingValue>& asked, const Tavri::TSettings& current);

}  // namespace TeliGrab
