// The soak: open/grab/sequence/release cycles over the simulated rig through the
// plug-in's entry points, printing the growth of the heap in use and of the resident
// set per 1,000 cycles. Usage: driver_soak [cycles, default 10000].

#include <cstdio>
#include <cstdlib>

#include "bench/SoakCycles.h"

int main(int argc, char** argv) {
    const int cycles = argc > 1 ? std::atoi(argv[1]) : 10000;
    if (cycles < 1) {
        std::fprintf(stderr, "usage: driver_soak [cycles >= 1]\n");
        return 2;
    }
    Tavri::soak::startRig();
    const int warmUp = cycles < 1000 ? cycles / 10 + 1 : 100;
    const auto growth = Tavri::soak::measure(warmUp, cycles);
    std::printf("cycles: %d (after %d to warm up)\n", cycles, warmUp);
    std::printf("heap growth per 1,000 cycles: %.0f bytes\n", growth.heapPerThousand);
    std::printf("RSS growth per 1,000 cycles: %.0f bytes\n", growth.residentPerThousand);
    releaseDriver();
    return 0;
}
