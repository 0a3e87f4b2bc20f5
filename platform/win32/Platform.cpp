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

void* allocateWarmBlock(std::size_t bytes) {
    if (bytes == 0) return nullptr;
    void* block = ::VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (!block) return nullptr;
    SYSTEM_INFO system;
    ::GetSystemInfo(&system);
    // Committed pages read as zero: writing a zero into each one changes nothing but maps it.
    auto* bytePointer = static_cast<volatile char*>(block);
    for (std::size_t offset = 0; offset < bytes; offset += system.dwPageSize) bytePointer[offset] = 0;
    return block;
}

void freeWarmBlock(void* block, std::size_t) {
    if (block) ::VirtualFree(block, 0, MEM_RELEASE);
}

}  // namespace Tavri::platform
