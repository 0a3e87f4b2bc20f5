#pragma once
// The cameras Aravis finds, in a stable order: by serial number, then device id, so
// an index means the same camera from one enumeration to the next.

#include <string>
#include <vector>

namespace Tavri::aravis {

struct DiscoveredCamera {
    std::string deviceId;  // what Aravis opens the camera by
    std::string vendor;
    std::string model;
    std::string serial;  // the camera's serial number, or its device id when it reports none
    std::string address;  // the transport address Aravis reaches it at (IP address on GigE)
};

// One discovery round (about a second on GigE: Aravis waits out its answer time);
// logs the count and the time it took at level 1.
std::vector<DiscoveredCamera> discoverCameras();

}  // namespace Tavri::aravis
