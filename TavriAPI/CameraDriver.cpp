#include "TavriAPI/CameraDriver.h"

namespace Tavri {

CameraDriver::CameraDriver() = default;
CameraDriver::~CameraDriver() = default;

}  // namespace Tavri

#include "TavriAPI/CameraAddresses.h"
#include "TavriAPI/SettingRanges.h"

namespace Tavri {

// Defined here, in the host's library, so host and plug-in share one type for dynamic_cast.
SettingRangeSource::~SettingRangeSource() = default;
CameraAddressSource::~CameraAddressSource() = default;

}  // namespace Tavri
