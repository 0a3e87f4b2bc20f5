// The contract suite over the Aravis backend, against the fixture camera, whose
// trigger line is pulsed from outside: each test case runs in its own network
// namespace with fresh cameras (run-in-netns.sh).

#include "sdk/Backends.h"
#include "tests/contract/ContractSuite.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri::testing {

ContractBackend contractBackend() {
    return {"aravis", [] { return aravis::makeSdk(); }, [] { return gige::fixtureSerial(); },
            TriggerSourceCode::Hardware, [](TeliSdk&, CameraHandle, int count) { gige::pulseTriggerLine(count); }};
}

}  // namespace Tavri::testing
