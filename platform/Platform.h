#pragma once
// Kernel objects the driver needs: the auto-reset image event the SDK signals, and
// the one page block that holds every request buffer; and the warm blocks that hold
// the pixels of image sets.

#include <cstddef>
#include <cstdint>

namespace Tavri::platform {

using EventHandle = void*;

constexpr std::uint32_t kInfinite = 0xFFFFFFFFu;

// Auto-reset, not signalled, unnamed. Null on failure.
EventHandle createEvent();
// Wakes one waiter, or the next wait if none waits. False on failure.
bool setEvent(EventHandle event);
// 0 when the event was signalled (the signal is consumed); non-zero on time-out or
// failure. kInfinite waits without limit.
std::uint32_t waitForEvent(EventHandle event, std::uint32_t timeoutMs);
void closeEvent(EventHandle event);

// Committed read/write pages, never executable: image memory never runs code.
// Null on failure or for zero bytes.
void* allocateBlock(std::uint32_t bytes);
void freeBlock(void* block);

// Committed read/write pages with every page already faulted in, so the first write
// into them costs no page fault. Null on failure or for zero bytes. Freed with the
// same byte count.
void* allocateWarmBlock(std::size_t bytes);
void freeWarmBlock(void* block, std::size_t bytes);

}  // namespace Tavri::platform
