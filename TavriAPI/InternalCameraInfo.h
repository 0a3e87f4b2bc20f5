#pragma once

#include <string>
#include <utility>

namespace Tavri {

// One attached camera as the SDK describes it.
struct InternalCameraInfo {
    std::string vendor;
    std::string model;
    std::string serialNumber;

    InternalCameraInfo(std::string vendor, std::string model, std::string serialNumber)
        : vendor(std::move(vendor)), model(std::move(model)), serialNumber(std::move(serialNumber)) {}
};

}  // namespace Tavri
