// What the backend tells beside the SDK's operations: control ranges and where each
// camera is reached.

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/AravisSdk.h"
#include "sdk/aravis/ControlRanges.h"

namespace Tavri::aravis {

bool AravisSdk::controlRange(CameraHandle camera, Control control, ControlRange* range) {
    const auto slot = findCamera(camera);
    bool known = false;
    if (slot && range)
        slot->connection->withFeatures([&](ArvCamera* arv) {
            known = features::controlRange(arv, control, *range);
            return AravisResult::Success;
        });
    return known;
}

std::string AravisSdk::transportAddress(std::uint32_t index) {
    ensureEnumerated();
    std::lock_guard<std::mutex> lock(mutex_);
    return index < cameras_.size() ? cameras_[index].address : std::string();
}

}  // namespace Tavri::aravis
