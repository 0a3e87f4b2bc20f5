#pragma once
// The soak cycle over the simulated rig, shared by the soak program (bench/Soak.cpp)
// and its short test (tests/sim): open a camera through the plug-in's entry points,
// grab one image, run one grab sequence, release it, and measure the heap in use
// (glibc's allocator statistics) and the resident set between batches of cycles.

#include <malloc.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Logger.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::soak {

constexpr const char* kSerial = "SOAK";
constexpr int kSequenceLength = 12;

// Bytes the allocator has handed out and not been given back.
inline std::uint64_t heapInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

inline std::uint64_t residentBytes() {
    unsigned long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%lu %lu", &pages, &resident) != 2) resident = 0;
        std::fclose(statm);
    }
    return static_cast<std::uint64_t>(resident) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// Log lines are not kept: a logger that records them would grow by itself.
class QuietLogger : public Log::LoggerInterface {
public:
    void log(int, const char*, int, const std::string&) override {}
};

// Selects the simulated backend, starts the driver and gives it one small camera in
// benchmark mode (requests complete at once), so a cycle costs little but the
// bookkeeping that could leak.
inline void startRig() {
    Log::GlobalLogger::install(std::make_shared<QuietLogger>());
    ::setenv("TAVRI_TELI_SDK", "sim", 1);
    initializeDriver();
    sim::RigConfig rig;
    rig.render = false;
    sim::CameraConfig camera;
    camera.serial = kSerial;
    camera.width = sim::kMinWidth;
    camera.height = sim::kMinHeight;
    rig.cameras = {camera};
    dynamic_cast<sim::SimSdk&>(activeSdk()).setRig(rig);
}

inline void cycle() {
    std::unique_ptr<CameraDriver> camera(createCamera());
    camera->initializeCamera(kSerial);
    camera->grab();
    camera->startGrabSequenceAsync(kSequenceLength);
    camera->finishGrabSequenceAsync();
    camera->releaseCamera();
}

struct Growth {
    double heapPerThousand = 0.0;      // bytes
    double residentPerThousand = 0.0;  // bytes
};

// Runs `warmUp` cycles, then `cycles` more, and reports the growth per 1,000 cycles
// of the second run.
inline Growth measure(int warmUp, int cycles) {
    for (int i = 0; i < warmUp; ++i) cycle();
    malloc_trim(0);
    const std::uint64_t heapBefore = heapInUse(), residentBefore = residentBytes();
    for (int i = 0; i < cycles; ++i) cycle();
    malloc_trim(0);
    const double scale = 1000.0 / cycles;
    return {(static_cast<double>(heapInUse()) - static_cast<double>(heapBefore)) * scale,
            (static_cast<double>(residentBytes()) - static_cast<double>(residentBefore)) * scale};
}

}  // namespace Tavri::soak
