// Time to an open camera: `teli-grab --sdk aravis settings` (load the plug-in, find
// the camera, open it with its stream and 120 requests, read its settings, close)
// against `arv-tool-0.8 control DeviceID` (one discovery round, then each camera's
// DeviceID), on the same fake cameras, alternating in one run. Both pay one GigE
// discovery round of about a second; the ratio shows what the driver adds to it.
// `teli-grab --help` is timed beside them: the tool's own start-up (loading its
// libraries), which the plug-in does not control, so the figures can be told apart.
// Run it through tests/gige/run-in-netns.sh (the target run_gige_open_benchmark).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/gige/ChildProcess.h"

namespace {

using Tavri::bench::runCommand;

constexpr int kRuns = 5;

std::vector<double> teliGrabSeconds, arvToolSeconds, startUpSeconds;

std::string fixtureSerial() {
    const char* serial = std::getenv("TAVRI_GIGE_FIXTURE_SERIAL");
    return serial ? serial : "TAVRI-FIX";
}

// Wall seconds of one run of `command`; false (and the benchmark skipped) if it failed.
bool timeCommand(benchmark::State& state, const std::string& command, std::vector<double>& seconds) {
    const auto run = runCommand("timeout 30 " + command + " >/dev/null");
    if (run.status != 0) {
        state.SkipWithError(("failed: " + command + "\n" + run.output).c_str());
        return false;
    }
    seconds.push_back(run.wallSeconds);
    return true;
}

// Each iteration runs both in turn, so both see the same load on the machine; the
// iteration time is teli-grab's.
void BM_OpenTime(benchmark::State& state) {
    const std::string teliGrab =
        std::string(TAVRI_TELI_GRAB) + " --sdk aravis --serial " + fixtureSerial() + " settings";
    for (auto _ : state) {
        if (!timeCommand(state, teliGrab, teliGrabSeconds)) return;
        if (!timeCommand(state, "arv-tool-0.8 control DeviceID", arvToolSeconds)) return;
        if (!timeCommand(state, std::string(TAVRI_TELI_GRAB) + " --help", startUpSeconds)) return;
        state.SetIterationTime(teliGrabSeconds.back());
    }
}

double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

BENCHMARK(BM_OpenTime)->Iterations(kRuns)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    if (!Tavri::bench::runBenchmarksInNamespace(argc, argv)) return 2;
    const double ours = median(teliGrabSeconds), theirs = median(arvToolSeconds), startUp = median(startUpSeconds);
    std::printf("median wall time of %d runs each\n", kRuns);
    std::printf("teli-grab --sdk aravis settings : %6.3f s\n", ours);
    std::printf("arv-tool-0.8 control DeviceID   : %6.3f s\n", theirs);
    std::printf("teli-grab --help (start-up)     : %6.3f s\n", startUp);
    if (theirs > 0.0) {
        std::printf("ratio teli-grab/arv-tool: %.2f (target <= 1.2)\n", ours / theirs);
        std::printf("ratio without the tool's start-up: %.2f\n", (ours - startUp) / theirs);
    }
    return 0;
}
