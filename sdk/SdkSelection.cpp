#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <mutex>
#include <string>

#include "TavriCommon/Exceptions.h"
#include "sdk/Backends.h"
#include "sdk/TeliSdk.h"

namespace Tavri {
namespace {

#ifdef _WIN32
constexpr const char* kDefaultBackend = "teli";
#else
constexpr const char* kDefaultBackend = "aravis";
#endif

std::mutex selectionMutex;
// The backend the environment chose; an override stands in front of it and never
// replaces it, so that removing the override brings the environment's backend back.
TeliSdk* active = nullptr;
TeliSdk* overridden = nullptr;
// Backends live until the process ends: camera objects hold references to them.
std::map<std::string, std::unique_ptr<TeliSdk>> made;

// The backends the driver knows, whether or not this build carries them.
constexpr const char* kKnownBackends[] = {"teli", "aravis", "sim"};

std::unique_ptr<TeliSdk> make(const std::string& name) {
    for (const auto& backend : builtBackends())
        if (name == backend.name) return backend.make();
    if (std::find(std::begin(kKnownBackends), std::end(kKnownBackends), name) != std::end(kKnownBackends))
        throw RuntimeException("Camera SDK backend '" + name + "' is not built into this driver");
    throw RuntimeException("Unknown camera SDK backend '" + name +
                           "' in TAVRI_TELI_SDK; expected one of teli, aravis, sim");
}

}  // namespace

void overrideSdk(TeliSdk* sdk) {
    std::lock_guard<std::mutex> lock(selectionMutex);
    overridden = sdk;
}

TeliSdk& selectSdk() {
    std::lock_guard<std::mutex> lock(selectionMutex);
    if (overridden) return *overridden;
    const char* env = std::getenv("TAVRI_TELI_SDK");
    const std::string name = env && *env ? env : kDefaultBackend;
    auto& slot = made[name];
    if (!slot) slot = make(name);
    return *(active = slot.get());
}

TeliSdk& activeSdk() {
    std::lock_guard<std::mutex> lock(selectionMutex);
    if (overridden) return *overridden;
    if (!active) throw RuntimeException("No camera SDK selected: initializeDriver has not run");
    return *active;
}

}  // namespace Tavri
