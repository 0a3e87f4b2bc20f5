#pragma once
// Factories of the backends. Each is defined only in a build that carries the
// backend; a factory throws RuntimeException when its backend cannot be brought up
// (a missing vendor DLL or ordinal, for instance).

#include <memory>
#include <vector>

#include "sdk/TeliSdk.h"

namespace Tavri {
namespace sim { std::unique_ptr<TeliSdk> makeSdk(); }
namespace aravis { std::unique_ptr<TeliSdk> makeSdk(); }
namespace teli { std::unique_ptr<TeliSdk> makeSdk(); }

// A backend this build carries: the name TAVRI_TELI_SDK gives it and its factory.
struct BuiltBackend {
    const char* name;
    std::unique_ptr<TeliSdk> (*make)();
};
// The backends this build carries, as their folders registered them with
// tavri_add_backend (sdk/CMakeLists.txt).
const std::vector<BuiltBackend>& builtBackends();

// Makes `sdk` the backend that selectSdk() and activeSdk() return, whatever
// TAVRI_TELI_SDK says; null removes the override, and activeSdk() returns the
// backend the environment chose again (or throws when none was chosen yet). For tests
// and for hosts that bring their own backend.
void overrideSdk(TeliSdk* sdk);
}  // namespace Tavri
