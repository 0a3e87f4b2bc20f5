#include "bench/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::uint64_t> allocations{0};
thread_local std::uint64_t threadAllocations = 0;

void* counted(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    ++threadAllocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace

namespace Tavri::bench {
std::uint64_t allocationCount() { return allocations.load(std::memory_order_relaxed); }
std::uint64_t threadAllocationCount() { return threadAllocations; }
}  // namespace Tavri::bench

void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
