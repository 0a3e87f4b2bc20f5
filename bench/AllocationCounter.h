#pragma once
// Counts heap allocations made through operator new and malloc in this process.

#include <cstdint>

namespace Tavri::bench {
std::uint64_t allocationCount();
}
