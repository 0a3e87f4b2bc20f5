#pragma once
// The simulated camera rig: a `TeliSdk` over in-process cameras, a hardware trigger
// line driven by a simulated pattern projector, and faults on demand. What it does,
// operation by operation, is told in sdk/sim/README.md; the codes it answers are in
// sdk/sim/SimResult.h.
//
// Reaching it
//   - through the driver: TAVRI_TELI_SDK=sim selects `Tavri::sim::makeSdk()`, which
//     builds a SimSdk over the rig file named by TAVRI_SIM_RIG (the default rig when
//     unset); a test reaches that instance with
//     `dynamic_cast<Tavri::sim::SimSdk&>(Tavri::activeSdk())`;
//   - directly: construct a SimSdk (default rig or a RigConfig) and call it as a TeliSdk.
//
// The simulator, by job: SimConfig (the rig's configuration and its ranges), SimRig
// (the rig file), SimRender (scene, patterns, stamp), SimHandles (handles and their
// generations), SimDevice (cameras), SimFaults, SimStream (requests, completions, the
// frame sources), and this class, one short body per operation.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "sdk/ControlRanges.h"
#include "sdk/FrameInfo.h"
#include "sdk/TeliSdk.h"
#include "sdk/sim/SimConfig.h"
#include "sdk/sim/SimRender.h"
#include "sdk/sim/SimResult.h"
#include "sdk/sim/SimRig.h"

namespace Tavri::sim {

class SimSdk : public TeliSdk, public FrameInfoSource, public ControlRangeSource {
public:
    SimSdk();
    explicit SimSdk(RigConfig rig);  // throws RuntimeException for an invalid rig
    ~SimSdk() override;              // stops and joins every producer thread
    SimSdk(const SimSdk&) = delete;
    SimSdk& operator=(const SimSdk&) = delete;

    // The 37 operations of sdk/SdkOperations.h (spelt out in sdk/TeliSdk.h).
    TAVRI_SDK_OVERRIDES

    // The frame of the last take: its number, capture time (the rig's clock is the
    // host's steady clock) and, as ground truth, the pulse and pattern it answered.
    bool frameInfo(StreamHandle stream, RequestHandle request, FrameInfo* info) override;

    // The range of the camera's feature row (rig file or default).
    bool controlRange(CameraHandle camera, Control control, ControlRange* range) override;

    // ---- Controls for tests and demos. Thread-safe. `camera` is the rig index, which
    // does not shift when a camera is unplugged; an index outside the rig throws
    // std::out_of_range.

    // Replaces the rig, resetting settings, faults and statistics. Refused (false)
    // while a camera is open; throws RuntimeException for an invalid rig.
    bool setRig(RigConfig rig);
    RigConfig rig() const;

    void failOperation(Operation operation, Result code, FaultWhen when = FaultWhen::Once, std::uint32_t call = 1);
    void clearOperationFaults();

    void setCondition(std::size_t camera, CameraCondition condition);
    CameraCondition condition(std::size_t camera) const;
    // The camera becomes Unplugged once `frames` more frames have gone into requests.
    void unplugAfterFrames(std::size_t camera, std::uint32_t frames);
    void addFrameFault(std::size_t camera, const FrameFault& fault);
    void clearFrameFaults(std::size_t camera);

    using CameraStats = sim::CameraStats;
    CameraStats stats(std::size_t camera) const;

    // Producer threads alive now: 0 once every stream is stopped.
    std::size_t runningThreads() const;
    // Camera, stream and request handles open now: 0 once everything was given back.
    std::size_t openHandles() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

// The factory of sdk/Backends.h: a SimSdk over rigFromEnvironment().
std::unique_ptr<TeliSdk> makeSdk();

}  // namespace Tavri::sim
