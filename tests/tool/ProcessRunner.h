#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace Tavri::testing {

struct ProcessResult {
    int exitCode = -1;      // -1 when it did not exit normally
    int signal = 0;         // the signal that ended it, if one did
    bool timedOut = false;  // killed after the time limit
    std::string out;
    std::string err;
};

// Runs `program` with `arguments`, the current environment plus `environment`, stdin
// from /dev/null, and stdout/stderr captured in files under `scratch`. A process still
// running after `limit` is killed by its id and reported as timed out.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, const std::string& scratch,
                         std::chrono::seconds limit = std::chrono::seconds(60));

}  // namespace Tavri::testing
