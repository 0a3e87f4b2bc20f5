#include "sdk/sim/SimHandles.h"

#include "sdk/sim/SimResult.h"

namespace Tavri::sim {
namespace {

// generation << 32 | slot << 2 | kind: never null (kind >= 1), and a pointer to an
// object of four-byte alignment or more decodes with kind 0, so it is unknown.
static_assert(sizeof(void*) == 8, "handles carry a 32-bit generation beside the slot");
constexpr std::uint32_t kMaxSlots = 1u << 30;

struct Decoded {
    std::uint32_t generation;
    std::uint32_t slot;
    std::uint8_t kind;
};

Decoded decode(void* handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    return {static_cast<std::uint32_t>(value >> 32), static_cast<std::uint32_t>((value & 0xFFFFFFFFu) >> 2),
            static_cast<std::uint8_t>(value & 3u)};
}

void* encode(std::uint32_t generation, std::uint32_t slot, HandleKind kind) {
    const std::uintptr_t value = (static_cast<std::uintptr_t>(generation) << 32) |
                                 (static_cast<std::uintptr_t>(slot) << 2) | static_cast<std::uintptr_t>(kind);
    return reinterpret_cast<void*>(value);
}

}  // namespace

void* HandleTable::add(HandleKind kind, std::shared_ptr<void> object) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::uint32_t slot;
    if (!free_.empty()) {
        slot = free_.back();
        free_.pop_back();
    } else {
        if (slots_.size() >= kMaxSlots) throw std::bad_alloc();
        slot = static_cast<std::uint32_t>(slots_.size());
        slots_.emplace_back();
    }
    Slot& entry = slots_[slot];
    entry.kind = kind;
    entry.object = std::move(object);
    ++live_;
    return encode(entry.generation, slot, kind);
}

Result HandleTable::find(void* handle, HandleKind kind, std::shared_ptr<void>& object) const {
    using namespace SimResult;
    if (!handle) return InvalidHandle;
    const Decoded d = decode(handle);
    std::lock_guard<std::mutex> lock(mutex_);
    if (d.kind == 0 || d.generation == 0 || d.slot >= slots_.size()) return InvalidHandle;
    const Slot& entry = slots_[d.slot];
    if (d.generation > entry.generation) return InvalidHandle;
    if (d.generation == entry.generation && (!entry.object || entry.kind != static_cast<HandleKind>(d.kind)))
        return InvalidHandle;
    if (static_cast<HandleKind>(d.kind) != kind) return WrongHandleKind;
    if (d.generation < entry.generation) return ClosedHandle;
    object = entry.object;
    return Success;
}

void HandleTable::remove(void* handle) {
    const Decoded d = decode(handle);
    std::shared_ptr<void> dropped;  // freed outside the lock
    std::lock_guard<std::mutex> lock(mutex_);
    if (d.slot >= slots_.size()) return;
    Slot& entry = slots_[d.slot];
    if (entry.generation != d.generation || !entry.object) return;
    dropped = std::move(entry.object);
    // A slot whose generation would wrap is retired rather than reused.
    if (++entry.generation != 0) free_.push_back(d.slot);
    --live_;
}

std::size_t HandleTable::live() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return live_;
}

}  // namespace Tavri::sim
