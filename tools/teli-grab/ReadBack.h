#pragma once

#include <string>
#include <vector>

#include "SettingsCheck.h"
#include "TavriAPI/SettingRanges.h"
#include "TavriCommon/Settings.h"

namespace TeliGrab {

// The numeric values asked for (the last one of each key counts) that the camera did
// not keep, as read back through settings(): one line each, "Camera/Gain: asked 1000,
// camera kept 0.0". Cameras round to their own increments, so a value within 1 % or
// 0.13 of what was asked counts as kept. A line names the key's range where `ranges`
// knows it.
std::vector<std::string> valuesNotKept(const std::vector<SettingValue>& asked, const Tavri::TSettings& current,
                                       const std::vector<Tavri::SettingRange>& ranges = {});

// The numbers asked for that lie outside their key's range, one sentence each
// ("ExposureTime 19 is outside the camera's range 20 to 1000000 in steps of 1").
std::vector<std::string> valuesOutOfRange(const std::vector<SettingValue>& asked,
                                          const std::vector<Tavri::SettingRange>& ranges);

}  // namespace TeliGrab
