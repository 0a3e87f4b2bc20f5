#include "sdk/sim/SimFaults.h"

#include <algorithm>

namespace Tavri::sim {

void OperationFaults::reset(const std::vector<OperationFault>& faults) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& list : armed_) list.clear();
    for (const auto& fault : faults)
        armed_[indexOf(fault.operation)].push_back({fault.code, fault.when, std::max<std::uint32_t>(fault.call, 1)});
    count_ = faults.size();
}

void OperationFaults::arm(const OperationFault& fault) {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_[indexOf(fault.operation)].push_back({fault.code, fault.when, std::max<std::uint32_t>(fault.call, 1)});
    ++count_;
}

void OperationFaults::clear() { reset({}); }

std::optional<Result> OperationFaults::fire(Operation operation) {
    if (count_.load(std::memory_order_acquire) == 0) return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    auto& list = armed_[indexOf(operation)];
    std::optional<Result> fired;
    for (auto it = list.begin(); it != list.end();) {
        ++it->seen;
        const bool fires = it->when == FaultWhen::Always || it->when == FaultWhen::Once ||
                           (it->when == FaultWhen::OnCall && it->seen == it->call);
        if (fires && !fired) fired = it->code;
        const bool spent = fires && it->when != FaultWhen::Always;
        if (spent) {
            it = list.erase(it);
            --count_;
        } else {
            ++it;
        }
    }
    return fired;
}

const FrameFault* frameFault(const std::vector<FrameFault>& faults, std::uint32_t frame, FrameFault::Kind kind) {
    for (const auto& fault : faults)
        if (fault.kind == kind && fault.touches(frame)) return &fault;
    return nullptr;
}

}  // namespace Tavri::sim
