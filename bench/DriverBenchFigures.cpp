// driver_bench's entry: runs the benchmarks, then prints the figures scripts compare
// (rates, their ratios to memcpy, lags and per-image costs), one "name: value" a line.

#include <benchmark/benchmark.h>

#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "bench/DriverBenchRig.h"

namespace Tavri::bench {
namespace {

// Keeps each run's figures so that the ratios can be printed after the table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) results[run.benchmark_name()] = run;
    }
    std::map<std::string, Run> results;
};

}  // namespace
}  // namespace Tavri::bench

int main(int argc, char** argv) {
    using namespace Tavri::bench;
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto find = [&](const std::string& prefix) -> const benchmark::BenchmarkReporter::Run* {
        for (const auto& [name, run] : reporter.results)
            if (name.rfind(prefix, 0) == 0) return &run;
        return nullptr;
    };
    const auto secondsPerIteration = [](const benchmark::BenchmarkReporter::Run& run) {
        return run.real_accumulated_time / static_cast<double>(run.iterations);
    };
    const auto counter = [](const benchmark::BenchmarkReporter::Run& run, const char* name) {
        return run.counters.at(name).value;
    };
    const auto* recycled = find("BM_SequenceRecycledSet");
    const auto* first = find("BM_SequenceFirstSet");
    const auto* cold = find("BM_ColdMemcpyNewBlock");
    const auto* warm = find("BM_WarmMemcpyReusedBlock");
    const auto* tenGigE = find("BM_TenGigECamera");
    const auto* one = find("BM_SequenceSmallImages/1/1/");
    const auto* many = find("BM_SequenceSmallImages/120/1/");
    const auto* oneHostOnly = find("BM_SequenceSmallImages/1/0/");
    const auto* manyHostOnly = find("BM_SequenceSmallImages/120/0/");
    // One figure per line, "name: value", for scripts that compare runs.
    std::cout << "\n";
    const double megabytes = kSequenceBytes / 1e6;
    const auto rate = [&](const auto& run) { return megabytes / secondsPerIteration(run); };
    if (recycled) std::cout << "recycled sequence, MB/s: " << rate(*recycled) << "\n";
    if (first) std::cout << "first-set sequence, MB/s: " << rate(*first) << "\n";
    if (cold) std::cout << "cold memcpy, MB/s: " << rate(*cold) << "\n";
    if (warm) std::cout << "warm memcpy, MB/s: " << rate(*warm) << "\n";
    if (recycled && cold) std::cout << "recycled sequence / cold memcpy: " << rate(*recycled) / rate(*cold) << "\n";
    if (recycled && warm) std::cout << "recycled sequence / warm memcpy: " << rate(*recycled) / rate(*warm) << "\n";
    if (first && cold) {
        std::cout << "first-set sequence / cold memcpy: " << rate(*first) / rate(*cold) << "\n";
        // With the prefault its start made: the cost moved, not taken away.
        const double withStart = secondsPerIteration(*first) + counter(*first, "start_us") * 1e-6;
        std::cout << "first-set sequence with its start / cold memcpy: "
                  << megabytes / withStart / rate(*cold) << "\n";
    }
    if (recycled) std::cout << "worker minor faults, recycled set: " << counter(*recycled, "worker_minflt") << "\n";
    if (first) std::cout << "worker minor faults, first set: " << counter(*first, "worker_minflt") << "\n";
    if (recycled) std::cout << "start, recycled set, us: " << counter(*recycled, "start_us") << "\n";
    if (first) std::cout << "start, first set, us: " << counter(*first, "start_us") << "\n";
    if (warm) std::cout << "one image copy, warm, us: " << secondsPerIteration(*warm) / kImages * 1e6 << "\n";
    if (tenGigE) {
        std::cout << "10GigE camera, MB/s: " << counter(*tenGigE, "camera_MBps") << "\n"
                  << "10GigE worker lag at the last image, us: " << counter(*tenGigE, "lag_us") << "\n"
                  << "10GigE worker lag at the last image, worst, us: " << counter(*tenGigE, "lag_max_us") << "\n"
                  << "finish latency after the last image, us: " << counter(*tenGigE, "finish_us") << "\n"
                  << "finish latency after the last image, worst, us: " << counter(*tenGigE, "finish_max_us")
                  << "\n"
                  << "worker minor faults, 10GigE: " << counter(*tenGigE, "worker_minflt") << "\n";
    }
    const auto perImage = [&](const auto& small, const auto& large) {
        return (secondsPerIteration(large) - secondsPerIteration(small)) / (kImages - 1) * 1e6;
    };
    if (oneHostOnly && manyHostOnly)
        std::cout << "per-image overhead besides the copy, host time only, us: " << perImage(*oneHostOnly, *manyHostOnly)
                  << "\n";
    if (one && many)
        std::cout << "per-image overhead besides the copy, with frame records, us: " << perImage(*one, *many) << "\n"
                  << "worker allocations per image: "
                  << (counter(*many, "worker_allocs_per_set") - counter(*one, "worker_allocs_per_set")) / (kImages - 1)
                  << "\n"
                  << "sequence start+finish of one small image, us: " << secondsPerIteration(*one) * 1e6 << "\n";
    benchmark::Shutdown();
    return 0;
}
