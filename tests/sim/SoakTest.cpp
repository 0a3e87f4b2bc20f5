// The short soak: open/grab/sequence/release cycles through the plug-in's entry points
// over the simulated rig keep the heap flat. The full run is bench/Soak.cpp.

#include <gtest/gtest.h>

#include "bench/SoakCycles.h"

namespace Tavri::soak {
namespace {

TEST(Soak, OpenGrabSequenceReleaseCyclesKeepTheHeapFlat) {
    startRig();
    // 300 cycles after 50 to warm up. Before handles were freed each cycle kept about
    // 22 KB (the 120 request objects and the stream), some 7 MB per 1,000 cycles.
    const Growth growth = measure(50, 300);
    releaseDriver();
    RecordProperty("heap_growth_per_1000_cycles", static_cast<int>(growth.heapPerThousand));
    EXPECT_LT(growth.heapPerThousand, 64.0 * 1024) << "the heap grows with every cycle";
}

}  // namespace
}  // namespace Tavri::soak
