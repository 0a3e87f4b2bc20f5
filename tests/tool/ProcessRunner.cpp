#include "ProcessRunner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace Tavri::testing {

namespace {

std::string slurp(const std::string& fileName) {
    std::ifstream in(fileName, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> merged;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!overrides.count(text.substr(0, text.find('=')))) merged.push_back(text);
    }
    for (const auto& [name, value] : overrides) merged.push_back(name + "=" + value);
    return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, const std::string& scratch,
                         std::chrono::seconds limit) {
    const std::string outFile = scratch + "/stdout.txt";
    const std::string errFile = scratch + "/stderr.txt";

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);

    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    auto envTexts = mergedEnvironment(environment);
    auto argvPointers = pointers(argv);
    auto envPointers = pointers(envTexts);

    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argvPointers.data(), envPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("posix_spawn " + program + ": " + std::strerror(spawned));

    ProcessResult result;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!result.timedOut && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    result.out = slurp(outFile);
    result.err = slurp(errFile);
    return result;
}

}  // namespace Tavri::testing
