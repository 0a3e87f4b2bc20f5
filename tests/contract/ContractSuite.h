#pragma once
// The backend contract, once: a parameterised suite (like libcamera's compliance
// tests) that every backend passes: the simulator (tests/contract/SimContract.cpp),
// the Aravis backend inside its network namespace (tests/gige/AravisContract.cpp) and
// the stand-in vendor DLL under wine (tests/windows/StandInContract.cpp). A runner
// links ContractSuite.cpp and defines contractBackend(); the cases are named
// Backends/Contract.<case>/<backend name>.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "sdk/TeliSdk.h"

namespace Tavri::testing {

struct ContractBackend {
    std::string name;
    // A fresh backend, not yet initialised.
    std::function<std::unique_ptr<TeliSdk>()> make;
    // The camera the streaming checks use (asked when a test runs), and how it is
    // triggered: the trigger source it is set to (64 software, 0 line) and what makes
    // `count` frames.
    std::function<std::string()> serial;
    std::uint32_t triggerSource = TriggerSourceCode::Software;
    std::function<void(TeliSdk& sdk, CameraHandle camera, int count)> trigger;
};

// Test names and messages show the backend by its name.
inline void PrintTo(const ContractBackend& backend, std::ostream* out) { *out << backend.name; }

// The backend the suite runs against; defined by each runner.
ContractBackend contractBackend();

// Software triggers, one per frame (the backends' own trigger operation).
inline void softwareTriggers(TeliSdk& sdk, CameraHandle camera, int count) {
    for (int i = 0; i < count; ++i) ASSERT_EQ(sdk.sdkExecuteSoftwareTrigger(camera), SdkResult::Success);
}

}  // namespace Tavri::testing
