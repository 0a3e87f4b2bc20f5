#pragma once
// Where the pixels of image sets live: one pool per process, in this library, of warm
// blocks keyed by their size. A new set takes an idle block of its size or else a new
// block whose pages are all faulted in already, so that filling it costs no page fault.
// A block goes back to the pool when the last copy of its set lets go, never earlier;
// the pool keeps a few idle blocks, within a byte limit, and gives the rest back to the
// system. Blocks are not cleared: a recycled block holds the pixels it held before.

#include <boost/shared_array.hpp>
#include <cstddef>
#include <cstdint>

namespace Tavri {

struct ImageSet;

// A block of `bytes` for a new image set; throws std::bad_alloc when the system has
// none. Zero bytes give an empty block of their own.
boost::shared_array<std::uint8_t> imageSetBlock(std::size_t bytes);

// How much the pool keeps idle for the next sets.
struct ImageSetMemoryLimits {
    std::size_t idleBlocks;
    std::size_t idleBytes;
};
// Idle blocks beyond the new limits go back to the system at once.
void setImageSetMemoryLimits(ImageSetMemoryLimits limits);
ImageSetMemoryLimits imageSetMemoryLimits();
// Gives every idle block back to the system.
void releaseIdleImageSetMemory();

struct ImageSetMemoryUse {
    std::size_t idleBlocks, idleBytes;  // kept for the next sets
    std::size_t heldBlocks, heldBytes;  // under sets still alive
};
ImageSetMemoryUse imageSetMemoryUse();

// Zeroes the images of `set` from `first` on, so that none of them shows what its
// block held before; for a sequence that ended before it reached them.
void clearImagesFrom(ImageSet& set, std::size_t first) noexcept;

}  // namespace Tavri
