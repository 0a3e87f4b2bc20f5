// The simulator's rig reader on arbitrary text, through its public entry point.
// Refusals are host exceptions; anything else fails the run.

#include <cstddef>
#include <cstdint>
#include <string>

#include "TavriCommon/Exceptions.h"
#include "sdk/sim/SimSdk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Tavri::sim::parseRig(std::string(reinterpret_cast<const char*>(data), size), "fuzz-rig.json");
    } catch (const Tavri::Exception&) {
    }
    return 0;
}
