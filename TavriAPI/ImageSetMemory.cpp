#include "TavriAPI/ImageSetMemory.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "TavriAPI/ImageSet.h"
#include "platform/Platform.h"

namespace Tavri {
namespace {

// Room for the next set of the largest size the default cameras make (120 colour images
// of 1920 x 1200, 829 MB) beside a few small ones.
constexpr ImageSetMemoryLimits kDefaultLimits{4, std::size_t{1} << 30};

struct Block {
    void* data;
    std::size_t bytes;
};

class Pool {
public:
    Pool() { idle.reserve(limits.idleBlocks); }

    boost::shared_array<std::uint8_t> take(std::size_t bytes) {
        void* data = reuse(bytes);
        if (!data) data = platform::allocateWarmBlock(bytes);
        if (!data) {
            // The idle blocks may be what fills the memory.
            releaseIdle();
            data = platform::allocateWarmBlock(bytes);
        }
        if (!data) throw std::bad_alloc();
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++use.heldBlocks;
            use.heldBytes += bytes;
        }
        // Should the control block fail, shared_array hands the block back itself.
        return boost::shared_array<std::uint8_t>(static_cast<std::uint8_t*>(data), GiveBack{bytes});
    }

    // The last copy of a set let go: its block becomes the newest idle one, the oldest
    // making room for it, or goes back to the system when it alone exceeds the limits.
    // Blocks are unmapped outside the lock, which can take milliseconds for a large one.
    void giveBack(void* data, std::size_t bytes) noexcept {
        bool counted = false;
        while (true) {
            Block freed{data, bytes};
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (!counted) {
                    --use.heldBlocks;
                    use.heldBytes -= bytes;
                    counted = true;
                }
                const bool fits = limits.idleBlocks > 0 && bytes <= limits.idleBytes;
                if (fits && idle.size() < limits.idleBlocks && use.idleBytes + bytes <= limits.idleBytes) {
                    // The idle list has room for the limit: never allocates here.
                    idle.push_back({data, bytes});
                    use.idleBlocks += 1;
                    use.idleBytes += bytes;
                    return;
                }
                if (fits) freed = removeOldest();  // there is one, or the block would fit
            }
            platform::freeWarmBlock(freed.data, freed.bytes);
            if (freed.data == data) return;
        }
    }

    void setLimits(ImageSetMemoryLimits newLimits) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            idle.reserve(newLimits.idleBlocks);
            limits = newLimits;
        }
        trim(false);
    }

    ImageSetMemoryLimits currentLimits() {
        std::lock_guard<std::mutex> lock(mutex);
        return limits;
    }

    void releaseIdle() { trim(true); }

    ImageSetMemoryUse currentUse() {
        std::lock_guard<std::mutex> lock(mutex);
        return use;
    }

private:
    struct GiveBack {
        std::size_t bytes;
        void operator()(std::uint8_t* data) const noexcept;
    };

    void* reuse(std::size_t bytes) {
        std::lock_guard<std::mutex> lock(mutex);
        // The newest block of the size: the likeliest to be resident still.
        const auto found =
            std::find_if(idle.rbegin(), idle.rend(), [bytes](const Block& b) { return b.bytes == bytes; });
        if (found == idle.rend()) return nullptr;
        void* data = found->data;
        idle.erase(std::next(found).base());
        use.idleBlocks -= 1;
        use.idleBytes -= bytes;
        return data;
    }

    Block removeOldest() {
        const Block oldest = idle.front();
        idle.erase(idle.begin());
        use.idleBlocks -= 1;
        use.idleBytes -= oldest.bytes;
        return oldest;
    }

    // Gives the oldest idle blocks back to the system until the limits hold, or all.
    void trim(bool all) {
        while (true) {
            Block oldest{};
            {
                std::lock_guard<std::mutex> lock(mutex);
                const bool within = use.idleBlocks <= limits.idleBlocks && use.idleBytes <= limits.idleBytes;
                if (idle.empty() || (within && !all)) return;
                oldest = removeOldest();
            }
            platform::freeWarmBlock(oldest.data, oldest.bytes);
        }
    }

    std::mutex mutex;
    ImageSetMemoryLimits limits = kDefaultLimits;
    std::vector<Block> idle;  // oldest first
    ImageSetMemoryUse use{};
};

// Never destroyed: a host may let go of a set while the process exits.
Pool& pool() {
    static Pool* const instance = new Pool;
    return *instance;
}

void Pool::GiveBack::operator()(std::uint8_t* data) const noexcept { pool().giveBack(data, bytes); }

}  // namespace

boost::shared_array<std::uint8_t> imageSetBlock(std::size_t bytes) {
    if (bytes == 0) return boost::shared_array<std::uint8_t>(new std::uint8_t[0]);
    return pool().take(bytes);
}

void setImageSetMemoryLimits(ImageSetMemoryLimits limits) { pool().setLimits(limits); }
ImageSetMemoryLimits imageSetMemoryLimits() { return pool().currentLimits(); }
void releaseIdleImageSetMemory() { pool().releaseIdle(); }
ImageSetMemoryUse imageSetMemoryUse() { return pool().currentUse(); }

void clearImagesFrom(ImageSet& set, std::size_t first) noexcept {
    const std::size_t count = set.images.size();
    if (first >= count) return;
    // The images lie back to back in the block.
    const auto bytes = static_cast<std::size_t>(set.bytesPerImage);
    std::memset(set.buffer.get() + first * bytes, 0, (count - first) * bytes);
}

}  // namespace Tavri
