#pragma once
// The ranges the open camera takes for its numeric settings, as teli-grab tells them:
// `settings --ranges`, and beside a value the camera refused or did not keep.

#include <string>
#include <vector>

#include "TavriAPI/CameraDriver.h"
#include "TavriAPI/SettingRanges.h"

namespace TeliGrab {

using Tavri::SettingRange;

// The plug-in's ranges for the open camera; empty when it tells none (no
// SettingRangeSource, or a backend without ranges). The live view calls this too.
std::vector<SettingRange> settingRanges(Tavri::CameraDriver& camera);

// "20 to 1000000 in steps of 1", without the step when the camera names none.
std::string describeRange(const SettingRange& range);

// " (the camera takes 20 to 1000000 in steps of 1)" for `key`, or empty when its range
// is unknown.
std::string rangeNote(const std::vector<SettingRange>& ranges, const std::string& key);

// The numeric keys of `current` without a range while others have one: controls the
// camera does not have (a value read for them means nothing).
std::vector<std::string> unavailableKeys(const Tavri::TSettings& current, const std::vector<SettingRange>& ranges);

// One line per numeric key of `current`: key, value, min, max, increment; "not
// available" for a key of unavailableKeys, "unknown" for ranges the plug-in cannot tell.
std::string rangesTable(const Tavri::TSettings& current, const std::vector<SettingRange>& ranges);

}  // namespace TeliGrab
