#pragma once
// The ranges of the SDK's numeric controls, read from the GenICam features the
// controls map to (CameraFeatures.h): min, max and, where the camera names one, the
// increment. The caller holds the camera's feature lock.

#include <arv.h>

#include "sdk/ControlRanges.h"

namespace Tavri::aravis::features {

// False when the camera has none of the control's features or does not tell its range.
bool controlRange(ArvCamera* camera, Control control, ControlRange& range);

}  // namespace Tavri::aravis::features
