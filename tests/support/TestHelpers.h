#pragma once

#include <string>

#include "tests/support/ThrownMessage.h"

namespace Tavri::testing {
// The permissions of the mapping that holds `address` as /proc/self/maps lists them
// ("rw-p"), or an empty string when no mapping holds it.
std::string mappingPermissions(const void* address);
inline bool isMapped(const void* address) { return !mappingPermissions(address).empty(); }

}  // namespace Tavri::testing
