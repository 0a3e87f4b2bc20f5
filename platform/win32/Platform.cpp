#include "platform/Platform.h"

#include <windows.h>

namespace Tavri::platform {

EventHandle createEvent() {
    // No security attributes, auto-reset, not signalled, unnamed.
    return ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
}

bool setEvent(EventHandle event) { return event && ::SetEvent(event) != FALSE; }

std::uint32_t waitForEvent(EventHandle event, std::uint32_t timeoutMs) {
    static_assert(kInfinite == INFINITE, "the platform's endless wait is the kernel's");
    if (!event) return WAIT_FAILED;
    const DWORD result = ::WaitForSingleObject(event, timeoutMs);
    // WAIT_TIMEOUT, WAIT_FAILED and WAIT_ABANDONED are all non-zero.
    return result == WAIT_OBJECT_0 ? 0u : static_cast<std::uint32_t>(result);
}

void closeEvent(EventHandle event) {
    if (event) ::CloseHandle(event);
}

// Read/write, deliberately not executable: the block only ever holds pixels.
void* allocateBlock(std::uint32_t bytes) {
    if (bytes == 0) return nullptr;
    return ::VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void freeBlock(void* block) {
    if (block) ::VirtualFree(block, 0, MEM_RELEASE);
}

}  // namespace Tavri::platform
