#pragma once
// The rig's handle table. A handle names a slot and the generation the slot had when
// the handle was handed out; the object behind it is freed when it is closed or
// released, and the slot's generation moves on. So a stale handle is still told from
// one that was never handed out (ClosedHandle, not InvalidHandle) without keeping
// its object, and memory stays flat over any number of open/close cycles.

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "sdk/TeliSdk.h"

namespace Tavri::sim {

enum class HandleKind : std::uint8_t { Camera = 1, Stream = 2, Request = 3 };

class HandleTable {
public:
    // A new handle for `object`, never equal to one handed out before.
    void* add(HandleKind kind, std::shared_ptr<void> object);
    // Success with the object, or InvalidHandle (null or never handed out),
    // ClosedHandle (removed since) or WrongHandleKind (a handle of another kind, live or
    // stale).
    Result find(void* handle, HandleKind kind, std::shared_ptr<void>& object) const;
    // Frees the table's reference; later finds answer ClosedHandle.
    void remove(void* handle);
    // Handles that were added and not removed.
    std::size_t live() const;

private:
    struct Slot {
        std::uint32_t generation = 1;
        HandleKind kind = HandleKind::Camera;
        std::shared_ptr<void> object;  // null: free
    };
    mutable std::mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::size_t live_ = 0;
};

}  // namespace Tavri::sim
