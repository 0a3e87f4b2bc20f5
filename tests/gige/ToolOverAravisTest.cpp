// teli-grab over the Aravis backend: a stock fake GigE camera lost mid-stream must
// end the stream with the disconnect exit code, promptly.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/gige/GigeCameras.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::string slurp(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

// teli-grab as a child process with stdout and stderr in files; killed by its id and
// reaped when the test leaves before it ended.
class Tool {
public:
    Tool(const std::vector<std::string>& arguments, const fs::path& folder)
        : out_(folder / "stdout"), err_(folder / "stderr") {
        std::vector<std::string> all{TELI_GRAB_EXE};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : all) argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(open("/dev/null", O_RDONLY), 0);
            dup2(open(out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            dup2(open(err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Tool() {
        if (pid_ <= 0 || exited_) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    // True once the process has ended, within `limit`.
    bool waitForExit(Clock::duration limit) {
        const auto until = Clock::now() + limit;
        while (!exited_ && Clock::now() < until) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                exited_ = true;
                exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        return exited_;
    }
    bool waitForStderr(const std::string& text, Clock::duration limit) {
        const auto until = Clock::now() + limit;
        while (Clock::now() < until) {
            if (err().find(text) != std::string::npos) return true;
            if (waitForExit(std::chrono::milliseconds(20))) return false;
        }
        return false;
    }
    int exitCode() const { return exitCode_; }
    std::string out() const { return slurp(out_); }
    std::string err() const { return slurp(err_); }

private:
    fs::path out_, err_;
    pid_t pid_ = -1;
    bool exited_ = false;
    int exitCode_ = -1;
};

// Killed, the camera's port is closed and loopback says so at once; frozen, nothing
// answers and nothing says so, as with a pulled cable: both must end within 2 s.
TEST(ToolOverAravis, CameraKilledMidStreamEndsTheStreamWithTheDisconnectCodeWithinTwoSeconds) {
    const std::vector<std::pair<const char*, bool (*)(const std::string&)>> losses{
        {"killed", Tavri::gige::killCamera}, {"frozen", Tavri::gige::freezeCamera}};
    const auto serials = Tavri::gige::stockSerials();
    ASSERT_GE(serials.size(), losses.size());
    for (std::size_t i = 0; i < losses.size(); ++i) {
        const auto& [how, lose] = losses[i];
        SCOPED_TRACE(how);
        const std::string victim = serials[serials.size() - 1 - i];
        std::string folder = (fs::temp_directory_path() / "teli-grab-gige-XXXXXX").string();
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        {
            // The stock camera has no trigger line: run it on the driver's software trigger.
            Tool tool({"--sdk", "aravis", "--serial", victim, "--log-level", "1", "--set",
                       "Camera/TriggerType=Software", "stream", "--seconds", "60", "--timeout", "1000"},
                      folder);
            ASSERT_TRUE(tool.waitForStderr("Updating camera settings", std::chrono::seconds(30))) << tool.err();
            std::this_thread::sleep_for(std::chrono::seconds(1));  // a few frames first
            ASSERT_TRUE(lose(victim));

            const auto lost = Clock::now();
            const bool ended = tool.waitForExit(std::chrono::seconds(2));
            Tavri::gige::killCamera(victim);  // a frozen camera goes now
            if (!ended) {
                // Say how late it was, to tell a slow detection from a hang.
                const bool late = tool.waitForExit(std::chrono::seconds(28));
                FAIL() << "teli-grab still streaming 2 s after the camera was " << how << "; "
                       << (late ? "it ended after " +
                                      std::to_string(std::chrono::duration<double>(Clock::now() - lost).count()) +
                                      " s with exit " + std::to_string(tool.exitCode())
                                : std::string("it had not ended after 30 s"))
                       << "\n" << tool.out() << tool.err();
            }
            EXPECT_EQ(tool.exitCode(), 7) << tool.out() << tool.err();
            EXPECT_THAT(tool.err(), ::testing::ContainsRegex("camera disconnected after [1-9][0-9]* frames"));
            EXPECT_THAT(tool.out(), ::testing::HasSubstr("(camera disconnected)"));
        }
        fs::remove_all(folder);
    }
}

}  // namespace
