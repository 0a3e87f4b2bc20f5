// Sets from cameras on one projector, as a stereo scanner takes them: sets of 42
// patterns from 1920 x 1200 cameras at 60 patterns per second over the simulated rig,
// whose producers write each frame's stamp alone (the scene is not drawn, so the CPU
// figure is the driver's and the host's). Reports the images lost (goal 0: missing,
// failed, or matched to another pulse) and the CPU time per image per camera, for two
// cameras beside one camera in the same run.
//
//   stereo_bench [--sets=N] [Google Benchmark flags]     (N: 100 by default)

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "TavriAPI/SetMatch.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri {
namespace {

constexpr int kPatterns = 42;
constexpr double kRate = 60.0;
int sets = 100;
double oneCameraCpuMs = 0.0;

class Camera : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;
};

double processCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

void BM_SetsOnOneProjector(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    sim::RigConfig rig;
    rig.drawScene = false;
    rig.projector.rate = kRate;
    for (std::size_t i = 0; i < count; ++i) {
        sim::CameraConfig camera;
        camera.serial = "CAM" + std::to_string(i + 1);
        rig.cameras.push_back(camera);
        rig.projector.drives.push_back(camera.serial);
    }
    sim::SimSdk sdk(rig);
    sdk.sdkInitialize(65535);
    {
        std::vector<std::unique_ptr<Camera>> cameras;
        for (const auto& config : rig.cameras) {
            cameras.push_back(std::make_unique<Camera>(sdk));
            if (!cameras.back()->initializeCamera(config.serial.c_str())) state.SkipWithError("cannot open camera");
            cameras.back()->setMode(ImageType::Gray);
        }
        std::int64_t lost = 0, refused = 0, images = 0;
        double cpuMs = 0.0;
        for (auto _ : state) {
            for (int set = 0; set < sets; ++set) {
                const double cpu = processCpuMs();
                for (auto& camera : cameras) camera->startGrabSequenceAsync(kPatterns);
                std::vector<CameraSet> taken;
                for (std::size_t i = 0; i < count; ++i) {
                    cameras[i]->finishGrabSequenceAsync();
                    taken.push_back({rig.cameras[i].serial, &cameras[i]->sequenceRecords(), &cameras[i]->sequenceVerdict()});
                }
                cpuMs += processCpuMs() - cpu;
                const SetMatch match = matchSets(taken, {1e9 / kRate});
                refused += match.matched() ? 0 : 1;
                for (std::size_t i = 0; i < count; ++i) {
                    const auto& records = cameras[i]->sequenceRecords().images;
                    std::int64_t good = 0;
                    for (std::size_t k = 0; k < records.size(); ++k)
                        good += records[k].status == 0 && records[k].pulse == k;
                    lost += kPatterns - good;
                    images += kPatterns;
                }
            }
        }
        const double perImage = cpuMs / static_cast<double>(images);
        if (count == 1) oneCameraCpuMs = perImage;
        state.counters["sets"] = static_cast<double>(sets);
        state.counters["lost_images"] = static_cast<double>(lost);
        state.counters["refused_sets"] = static_cast<double>(refused);
        state.counters["cpu_ms_per_image_per_camera"] = perImage;
        if (count > 1 && oneCameraCpuMs > 0.0) state.counters["cpu_vs_one_camera"] = perImage / oneCameraCpuMs;
        for (auto& camera : cameras) camera->releaseCamera();
    }
    sdk.sdkTerminate();
}

// One camera first: the ratio of the others is taken against it.
BENCHMARK(BM_SetsOnOneProjector)->Arg(1)->Arg(2)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace Tavri

int main(int argc, char** argv) {
    std::vector<char*> rest;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "--sets=", 7) == 0)
            Tavri::sets = std::max(1, std::atoi(argv[i] + 7));
        else
            rest.push_back(argv[i]);
    }
    int restCount = static_cast<int>(rest.size());
    benchmark::Initialize(&restCount, rest.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
