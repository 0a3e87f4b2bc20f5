#pragma once
// Counts heap allocations made through operator new in this process, and per thread.

#include <cstdint>

namespace Tavri::bench {
std::uint64_t allocationCount();
// Those made by the calling thread alone.
std::uint64_t threadAllocationCount();
}
