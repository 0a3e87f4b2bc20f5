#include "tests/unit/DriverProbe.h"

#include <fstream>
#include <sstream>

#include "TavriCommon/Exceptions.h"

namespace Tavri::testing {

std::string runtimeError(const std::function<void()>& action) {
    try {
        action();
    } catch (const RuntimeException& error) {
        return error.what();
    }
    return "<no RuntimeException>";
}

bool isMapped(const void* address) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    const auto target = reinterpret_cast<std::uintptr_t>(address);
    while (std::getline(maps, line)) {
        std::uintptr_t begin = 0, end = 0;
        char dash = 0;
        std::istringstream(line) >> std::hex >> begin >> dash >> end;
        if (target >= begin && target < end) return true;
    }
    return false;
}

}  // namespace Tavri::testing
