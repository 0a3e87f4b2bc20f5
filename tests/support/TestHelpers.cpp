#include "tests/support/TestHelpers.h"

#include <cstdint>
#include <fstream>
#include <sstream>


namespace Tavri::testing {

std::string mappingPermissions(const void* address) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    const auto target = reinterpret_cast<std::uintptr_t>(address);
    while (std::getline(maps, line)) {
        std::uintptr_t begin = 0, end = 0;
        char dash = 0;
        std::string permissions;
        std::istringstream(line) >> std::hex >> begin >> dash >> end >> permissions;
        if (target >= begin && target < end) return permissions;
    }
    return "";
}

}  // namespace Tavri::testing
