#include "tests/support/TestHelpers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace Tavri::testing {

// Read without touching the heap until the answer is known: an allocation here could
// map fresh pages at the very address asked about (a sanitizer's allocator maps its
// own), and a freed block would then look mapped.
std::string mappingPermissions(const void* address) {
    const auto target = reinterpret_cast<std::uintptr_t>(address);
    char found[5] = {};
    const int fd = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "";
    char buffer[4096];
    char line[512];
    std::size_t used = 0;
    bool done = false;
    for (ssize_t n; !done && (n = ::read(fd, buffer, sizeof buffer)) > 0;) {
        for (ssize_t i = 0; i < n && !done; ++i) {
            if (buffer[i] != '\n') {
                if (used < sizeof line - 1) line[used++] = buffer[i];
                continue;
            }
            line[used] = '\0';
            used = 0;
            unsigned long begin = 0, end = 0;
            char permissions[5] = {};
            if (std::sscanf(line, "%lx-%lx %4s", &begin, &end, permissions) == 3 && target >= begin && target < end) {
                std::memcpy(found, permissions, sizeof found);
                done = true;
            }
        }
    }
    ::close(fd);
    return found;
}

}  // namespace Tavri::testing
