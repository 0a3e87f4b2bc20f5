#include "bench/gige/ChildProcess.h"

#include <benchmark/benchmark.h>
#include <net/if.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <memory>

namespace Tavri::bench {
namespace {

double seconds(const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; }

double cpuOf(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

CommandRun runCommand(const std::string& command) {
    CommandRun run;
    const double cpuBefore = cpuOf(RUSAGE_CHILDREN);
    const auto start = std::chrono::steady_clock::now();
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return run;
    char chunk[512];
    while (std::fgets(chunk, sizeof chunk, pipe)) run.output += chunk;
    run.status = ::pclose(pipe);
    run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.cpuSeconds = cpuOf(RUSAGE_CHILDREN) - cpuBefore;
    return run;
}

double ownCpuSeconds() { return cpuOf(RUSAGE_SELF); }

bool loopbackOnly() {
    struct if_nameindex* names = ::if_nameindex();
    if (!names) return false;
    bool onlyLoopback = true;
    for (const struct if_nameindex* entry = names; entry->if_index != 0; ++entry)
        if (std::string(entry->if_name) != "lo") onlyLoopback = false;
    ::if_freenameindex(names);
    return onlyLoopback;
}

bool runBenchmarksInNamespace(int& argc, char** argv) {
    if (!loopbackOnly()) {
        std::fprintf(stderr, "run this through tests/gige/run-in-netns.sh: GigE discovery must stay in a "
                             "private network namespace\n");
        return false;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return true;
}

}  // namespace Tavri::bench
