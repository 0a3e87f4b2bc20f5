#include "platform/Platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>

namespace Tavri::platform {
namespace {

struct AutoResetEvent {
    std::mutex mutex;
    std::condition_variable signalled;
    bool set = false;
};

std::size_t pageSize() {
    static const std::size_t size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

}  // namespace

EventHandle createEvent() { return new (std::nothrow) AutoResetEvent; }

bool setEvent(EventHandle handle) {
    if (!handle) return false;
    auto* event = static_cast<AutoResetEvent*>(handle);
    {
        std::lock_guard<std::mutex> lock(event->mutex);
        event->set = true;
    }
    event->signalled.notify_one();
    return true;
}

std::uint32_t waitForEvent(EventHandle handle, std::uint32_t timeoutMs) {
    if (!handle) return 1;
    auto* event = static_cast<AutoResetEvent*>(handle);
    std::unique_lock<std::mutex> lock(event->mutex);
    const auto isSet = [event] { return event->set; };
    if (timeoutMs == 0) {
        // A poll: no timed wait, whose expired deadline still costs a trip to the kernel.
        if (!event->set) return 1;
    } else if (timeoutMs == kInfinite) {
        event->signalled.wait(lock, isSet);
    } else if (!event->signalled.wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet)) {
        return 1;
    }
    event->set = false;
    return 0;
}

void closeEvent(EventHandle handle) { delete static_cast<AutoResetEvent*>(handle); }

// munmap needs the length that VirtualFree does not, so the block carries it in a
// leading page of its own.
void* allocateBlock(std::uint32_t bytes) {
    if (bytes == 0) return nullptr;
    const std::size_t total = pageSize() + bytes;
    void* base = ::mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) return nullptr;
    std::memcpy(base, &total, sizeof total);
    return static_cast<char*>(base) + pageSize();
}

void freeBlock(void* block) {
    if (!block) return;
    char* base = static_cast<char*>(block) - pageSize();
    std::size_t total = 0;
    std::memcpy(&total, base, sizeof total);
    ::munmap(base, total);
}

void* allocateWarmBlock(std::size_t bytes) {
    if (bytes == 0) return nullptr;
#ifdef MAP_POPULATE
    // The kernel faults every page in for writing at once, far cheaper than a fault per page.
    constexpr int populate = MAP_POPULATE;
#else
    constexpr int populate = 0;
#endif
    void* block = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | populate, -1, 0);
    if (block == MAP_FAILED) return nullptr;
    if (!populate) {
        // Fresh pages read as zero: writing a zero into each one changes nothing but maps it.
        auto* bytePointer = static_cast<volatile char*>(block);
        for (std::size_t offset = 0; offset < bytes; offset += pageSize()) bytePointer[offset] = 0;
    }
    return block;
}

void freeWarmBlock(void* block, std::size_t bytes) {
    if (block) ::munmap(block, bytes);
}

}  // namespace Tavri::platform
