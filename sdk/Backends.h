#pragma once
// Factories of the backends. Each is defined only in a build that carries the
// backend; a factory throws RuntimeException when its backend cannot be brought up
// (a missing vendor DLL or ordinal, for instance).

#include <memory>

#include "sdk/TeliSdk.h"

namespace Tavri {
namespace sim { std::unique_ptr<TeliSdk> makeSdk(); }
namespace aravis { std::unique_ptr<TeliSdk> makeSdk(); }
namespace teli { std::unique_ptr<TeliSdk> makeSdk(); }

// Makes `sdk` the backend that selectSdk() and activeSdk() return, whatever
// TAVRI_TELI_SDK says; null removes the override, and activeSdk() returns the
// backend the environment chose again (or throws when none was chosen yet). For tests
// and for hosts that bring their own backend.
void overrideSdk(TeliSdk* sdk);
}  // namespace Tavri
