#pragma once
// Where a listed camera is reached, for a host's list of cameras. A host reaches the
// interface with dynamic_cast from its CameraDriver*, as it reaches ImageRecordSource.

#include <string>

namespace Tavri {

class CameraAddressSource {
public:
    virtual ~CameraAddressSource();
    // The transport address of the listed camera with `serialNumber` (an IP address on
    // GigE); empty when the backend does not tell it.
    virtual std::string transportAddress(const std::string& serialNumber) = 0;
};

}  // namespace Tavri
