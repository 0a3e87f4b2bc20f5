// The contract suite over the stand-in vendor DLL under wine: the driver's own
// binding (OrdinalSdk, by ordinal) to TeliCamApi64.dll, the simulated rig of
// windows-rig.json behind it.

#include "sdk/Backends.h"
#include "tests/contract/ContractSuite.h"

namespace Tavri::testing {

ContractBackend contractBackend() {
    return {"standin", [] { return teli::makeSdk(); }, [] { return std::string("TELI-B-0002"); },
            TriggerSourceCode::Software, softwareTriggers};
}

}  // namespace Tavri::testing
