#pragma once
// Faults on demand: operation faults, armed by Operation (never by name: a misspelt
// name is refused where names are read, at the rig file and the test edge), and the
// frame faults that touch a given frame.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "sdk/sim/SimConfig.h"

namespace Tavri::sim {

class OperationFaults {
public:
    // Replaces every armed fault by `faults`.
    void reset(const std::vector<OperationFault>& faults);
    void arm(const OperationFault& fault);
    void clear();
    // Called first by every operation: the code it returns instead of doing anything,
    // when a fault fires. Counts the call for faults armed on a later call.
    std::optional<Result> fire(Operation operation);

private:
    struct Armed {
        Result code;
        FaultWhen when;
        std::uint32_t call;
        std::uint32_t seen = 0;
    };
    std::mutex mutex_;
    std::array<std::vector<Armed>, kOperationCount> armed_;
    std::atomic<std::size_t> count_{0};  // armed faults: none, no lock
};

// The first fault of `kind` in `faults` that touches frame `frame`, or null.
const FrameFault* frameFault(const std::vector<FrameFault>& faults, std::uint32_t frame, FrameFault::Kind kind);

}  // namespace Tavri::sim
