#pragma once
// The ranges a camera takes for its numeric controls: an optional interface of our own
// beside TeliSdk, not an operation of it, so the vendor DLL's table stays as it is. A
// backend that implements it (simulator, Aravis) is found with dynamic_cast.

#include <cstdint>

#include "sdk/TeliSdk.h"

namespace Tavri {

enum class Control : std::uint8_t { ExposureTime, Gain, BlackLevel, RedBalance, BlueBalance };

struct ControlRange {
    double min = 0.0;
    double max = 0.0;
    double increment = 0.0;  // 0: the camera names no step
};

class ControlRangeSource {
public:
    virtual ~ControlRangeSource() = default;
    // Fills `range` for `control` on the open `camera`. False when the backend cannot
    // tell it: no such control on this camera, or a handle it does not know.
    virtual bool controlRange(CameraHandle camera, Control control, ControlRange* range) = 0;
};

}  // namespace Tavri
