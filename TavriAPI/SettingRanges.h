#pragma once
// The ranges the open camera takes for its numeric settings, and the interface through
// which a host reads them. A host reaches it with dynamic_cast from its CameraDriver*,
// as it reaches ImageRecordSource: CameraDriver itself is unchanged.

#include <string>
#include <vector>

namespace Tavri {

struct SettingRange {
    std::string key;  // a numeric key of settings(): "ExposureTime", "Camera/Gain", ...
    double min = 0.0;
    double max = 0.0;
    double increment = 0.0;  // 0: the camera names no step
};

class SettingRangeSource {
public:
    virtual ~SettingRangeSource();
    // One entry per numeric key whose range the backend can tell for the open camera,
    // in the order settings() lists them; empty before the camera is open or with a
    // backend that tells no ranges. A key left out is one the camera may not have.
    virtual std::vector<SettingRange> settingRanges() = 0;
};

}  // namespace Tavri
