// A stand-in for the vendor's TeliCamApi64.dll: the simulated rig behind the same
// 37 exports, by ordinal only (TeliCamApi64.def, made from sdk/SdkOperations.h), so
// the Windows build of the driver runs end to end without the vendor's library or a
// camera.
//
// Each export forwards to one process-wide SimSdk. Exceptions never cross the C
// boundary: they become result codes of the stand-in's own.

#include <windows.h>

#include <cstdio>
#include <exception>

#include "sdk/sim/SimSdk.h"

using Tavri::CameraHandle;
using Tavri::CameraInfoRecord;
using Tavri::EventHandle;
using Tavri::RequestHandle;
using Tavri::Result;
using Tavri::StreamHandle;
using Tavri::TeliSdk;

namespace {

constexpr Result kRigUnavailable = Tavri::SdkResult::StandInRigUnavailable;
constexpr Result kUnexpectedException = Tavri::SdkResult::StandInUnexpectedException;

TeliSdk* rig() {
    // Built on first use and never destroyed: its producer threads must not be
    // joined under the loader lock while the DLL unloads.
    static TeliSdk* const sdk = []() -> TeliSdk* {
        try {
            return Tavri::sim::makeSdk().release();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "TeliCamApi64 stand-in: %s\n", e.what());
            return nullptr;
        }
    }();
    return sdk;
}

// The export's parameters are the operation's own, type for type (both come from
// sdk/SdkOperations.h): the driver's binding calls each export with exactly TeliSdk's
// member signature.
template <auto Operation, typename... Args>
Result forward(Args... args) noexcept {
    TeliSdk* sdk = rig();
    if (!sdk) return kRigUnavailable;
    try {
        return (sdk->*Operation)(args...);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "TeliCamApi64 stand-in: %s\n", e.what());
        return kUnexpectedException;
    } catch (...) {
        return kUnexpectedException;
    }
}

}  // namespace

// The exports, one per operation; TeliCamApi64.def (made from the same list) gives
// each its ordinal and no name.
extern "C" {
#define TAVRI_STANDIN_EXPORT(ordinal, name, parameters, arguments) \
    Result WINAPI name parameters { return forward<&TeliSdk::name> arguments; }
TAVRI_SDK_OPERATIONS(TAVRI_STANDIN_EXPORT)
#undef TAVRI_STANDIN_EXPORT
}  // extern "C"
