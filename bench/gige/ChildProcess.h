#pragma once
// What the GigE benchmarks need around the programs they compare against: run a
// command to its end and account its wall time and CPU time, and refuse to run
// outside the loopback-only namespace.

#include <string>

namespace Tavri::bench {

struct CommandRun {
    std::string output;      // stdout and stderr together
    int status = -1;         // as pclose returns it
    double wallSeconds = 0;
    double cpuSeconds = 0;   // user + sys of every process it started, once waited for
};

// Runs `command` through /bin/sh and waits for it.
CommandRun runCommand(const std::string& command);

// User + sys seconds this process has used so far, all its threads.
double ownCpuSeconds();

// True when this process sees no network interface but loopback: GigE discovery
// broadcasts on every interface, so the benchmarks run only in the harness's namespace.
bool loopbackOnly();

// Runs the registered benchmarks when loopbackOnly() holds; otherwise says why not and
// returns false, so main can exit with an error.
bool runBenchmarksInNamespace(int& argc, char** argv);

}  // namespace Tavri::bench
