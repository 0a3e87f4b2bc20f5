#pragma once
// teli-grab run as a separate process in a scratch folder, on the simulated rig
// (TAVRI_TELI_SDK=sim) so that no network is touched: the fixture of the tool's tests.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <sstream>
#include <thread>

namespace Tavri::testing {


namespace fs = std::filesystem;

struct Outcome {
    int exitCode;  // -1 when the process did not exit by itself within a minute
    std::string out, err;
};

inline std::string describe(const Outcome& outcome) {
    return "exit " + std::to_string(outcome.exitCode) + "\n--- stdout\n" + outcome.out + "\n--- stderr\n" + outcome.err;
}

inline std::string slurp(const std::string& fileName) {
    std::ostringstream text;
    text << std::ifstream(fileName, std::ios::binary).rdbuf();
    return text.str();
}

// How a case runs the tool besides its arguments.
struct How {
    int signal = 0;           // sent once `signalAfter` shows on stderr
    std::string signalAfter;  // a line of the driver's log (the case sets --log-level 1)
    bool terminal = false;    // stdout and stderr on a pseudo-terminal, read into `err`
    bool fullDisk = false;    // stdout on /dev/full: every write fails with ENOSPC
};

class TeliGrab : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "teli-grab-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
        // Small cameras: a sequence gives each image only 500 ms, and a full-size first
        // frame takes longer than that in a sanitizer build.
        write("rig.json", R"({"seed": 1, "projector": {"rate": 60}, "cameras": [
            {"serial": "SIMA", "model": "MODEL-A", "vendor": "Vendor A", "width": 320, "height": 240},
            {"serial": "SIMB", "model": "MODEL-B", "vendor": "Vendor B", "width": 320, "height": 240}]})");
        // The fourth frame comes 800 ms late, after the sequence worker's 500 ms wait.
        write("late.json", camera(R"("frameFaults": [{"kind": "late", "first": 3, "count": 1, "delayMs": 800}])"));
        // From the sixth frame on, every frame is lost.
        write("drop.json", camera(R"("frameFaults": [{"kind": "drop", "first": 5, "every": 1}])"));
        write("unplug.json", camera(R"("unplugAfterFrames": 10)"));
        write("gap.json", camera(R"("frameFaults": [{"kind": "drop", "first": 5, "count": 1}])"));
        write("hung.json", camera(R"("condition": "hung")"));
        // Two cameras on one projector; the second one's faults.
        write("stereo.json", stereo(""));
        write("stereo-missed.json", stereo(R"("frameFaults": [{"kind": "missedPulse", "first": 3, "count": 1}])"));
        write("stereo-extra.json", stereo(R"("frameFaults": [{"kind": "doublePulse", "first": 0, "count": 1}])"));
        write("stereo-unplug.json", stereo(R"("unplugAfterFrames": 3)"));
        write("mono.json", camera(R"("pixelFormats": ["Mono8"])"));
        // One trigger pulse in 20 s: as good as no trigger wiring.
        write("untriggered.json", R"({"seed": 1, "projector": {"rate": 0.05},
            "cameras": [{"serial": "SIMSLOW", "width": 160, "height": 120}]})");
    }
    void TearDown() override { fs::remove_all(scratch_); }

    static std::string stereo(const std::string& faults) {
        return R"({"seed": 1, "projector": {"rate": 60, "drives": ["SIML", "SIMR"]}, "cameras": [
            {"serial": "SIML", "width": 160, "height": 120}, {"serial": "SIMR", "width": 160, "height": 120)" +
               (faults.empty() ? "" : ", " + faults) + "}]}";
    }
    static std::string camera(const std::string& extra) {
        return R"({"seed": 1, "projector": {"rate": 60}, "cameras": [{"serial": "SIMF", "width": 160, "height": 120, )" +
               extra + "}]}";
    }

    // stdin from /dev/null; killed by its id when it has not ended after a minute.
    Outcome run(std::vector<std::string> arguments, const How& how = {}) const {
        if (std::find(arguments.begin(), arguments.end(), "--rig") == arguments.end())
            arguments.insert(arguments.begin(), {"--rig", path("rig.json")});
        arguments.insert(arguments.begin(), TELI_GRAB_EXE);
        std::vector<char*> argv;
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);

        // The last run's log must not be taken for this one's.
        fs::remove(path("stdout"));
        fs::remove(path("stderr"));
        int terminal = -1;
        const pid_t pid = how.terminal ? forkpty(&terminal, nullptr, nullptr, nullptr) : fork();
        if (pid == 0) {
            setenv("TAVRI_TELI_SDK", "sim", 1);
            if (!how.terminal) {
                dup2(open("/dev/null", O_RDONLY), 0);
                dup2(open(how.fullDisk ? "/dev/full" : path("stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
                dup2(open(path("stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        if (terminal >= 0) fcntl(terminal, F_SETFL, O_NONBLOCK);

        std::string fromTerminal;
        bool signalled = how.signal == 0;
        int status = 0;
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        for (;;) {
            char buffer[4096];
            ssize_t n;
            while (terminal >= 0 && (n = read(terminal, buffer, sizeof buffer)) > 0) fromTerminal.append(buffer, n);
            if (waitpid(pid, &status, WNOHANG) == pid) break;
            if (!signalled && slurp(path("stderr")).find(how.signalAfter) != std::string::npos) {
                kill(pid, how.signal);
                signalled = true;
            }
            if (std::chrono::steady_clock::now() > giveUp) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
                status = -1;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (terminal >= 0) close(terminal);
        const int exitCode = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (how.terminal) return {exitCode, "", fromTerminal};
        return {exitCode, slurp(path("stdout")), slurp(path("stderr"))};
    }
    nlohmann::json settingsJson(const std::vector<std::string>& arguments) const {
        const auto outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << describe(outcome);
        return nlohmann::json::parse(outcome.out, nullptr, false);
    }
    std::string path(const std::string& name) const { return (scratch_ / name).string(); }
    void write(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }

    fs::path scratch_;
};

#define SKIP_WITHOUT_SIM() \
    if (!TOOL_TEST_HAVE_SIM) GTEST_SKIP() << "the plug-in is built without the simulated rig (TAVRI_WITH_SIM)"

// The driver logs this first, at level 1: a case that expects it absent proves the
// fault was found before the plug-in was started.
inline const char* const kDriverStarted = "Initializing Toshiba Teli driver.";
inline const char* const kDriverReleased = "Releasing Toshiba Teli driver.";
inline const char* const kRunFree = "--set Camera/TriggerType=Software";

}  // namespace Tavri::testing
