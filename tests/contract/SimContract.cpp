// The contract suite over the simulated rig, in process.

#include "sdk/sim/SimSdk.h"
#include "tests/contract/ContractSuite.h"

namespace Tavri::testing {
namespace {
std::unique_ptr<TeliSdk> smallRig() {
    sim::RigConfig rig = sim::defaultRig();
    for (auto& camera : rig.cameras) {
        camera.width = 256;
        camera.height = 64;
    }
    return std::make_unique<sim::SimSdk>(rig);
}
}  // namespace

ContractBackend contractBackend() {
    return {"sim", smallRig, [] { return std::string("SIM0001"); }, TriggerSourceCode::Software, softwareTriggers};
}

}  // namespace Tavri::testing
