#include "TavriAPI/CameraDriver.h"

namespace Tavri {

CameraDriver::CameraDriver() = default;
CameraDriver::~CameraDriver() = default;

}  // namespace Tavri
