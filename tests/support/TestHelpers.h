#pragma once

#include <functional>
#include <string>

namespace Tavri::testing {

// The message of the RuntimeException `action` throws, or a marker when none.
std::string runtimeError(const std::function<void()>& action);
// The permissions of the mapping that holds `address` as /proc/self/maps lists them
// ("rw-p"), or an empty string when no mapping holds it.
std::string mappingPermissions(const void* address);
inline bool isMapped(const void* address) { return !mappingPermissions(address).empty(); }

}  // namespace Tavri::testing
