// teli-grab over the Aravis backend: a camera lost mid-stream or mid-sequence ends the
// command with the disconnect exit code, promptly; a camera losing stream packets is
// not lost.

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
#include <optional>
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

// Each case runs teli-grab on one camera of the harness and, once the camera streams,
// may take it away: killed, its port is closed and loopback says so at once; frozen,
// nothing answers and nothing says so, as with a pulled cable. A lost camera ends the
// command with the disconnect code within `limit`; one losing stream packets with its
// control channel intact is never called lost, and its cause is packet loss, run
// after run; one that another program holds is refused at once with that cause.
TEST(ToolOverAravis, EachCommandOnAGigeCameraEndsWithItsOwnCause) {
    using Tavri::gige::freezeCamera;
    using Tavri::gige::killCamera;
    const auto stock = Tavri::gige::stockSerials();
    ASSERT_GE(stock.size(), 2u);
    const struct Case {
        const char* name;
        std::string serial;
        std::vector<std::string> arguments;
        bool (*lose)(const std::string&);  // none: the camera stays
        int exitCode;
        const char* inStderr;  // a regular expression
        std::vector<std::string> inStdout = {}, notInStderr = {}, files = {}, absentFiles = {};
        int runs = 1;
        std::chrono::seconds limit{2};
        std::vector<std::string> onceInStderr = {};
        std::vector<std::string> holder = {};  // a program that holds the camera first
    } cases[] = {
        {"list", stock.front(), {"list"}, nullptr, 0, "", {"TAVRI-GV1 ", " 127.0.0.2\n", " 127.0.0.6\n"}},
        // The driver sets balance at the open and again for --set: one warning.
        {"settings", stock.front(), {"--set", "RedBalance=1.5", "settings"}, nullptr, 0,
         "RedBalance: not available on this camera", {"\"ExposureTime\""}, {}, {}, {}, 1, {},
         {"[warning] Aravis: set balance ratio failed with 300: BalanceRatioSelector = Red refused"}},
        {"settings --ranges", stock.front(), {"settings", "--ranges"}, nullptr, 0, "",
         {"BlueBalance        not available on this camera\n"}},
        {"grab on a camera another program holds", Tavri::gige::fixtureSerial(), {"grab", "-o", "kept.png"}, nullptr,
         4, "initializeCamera: Failed to open camera\\. \\(Aravis: camera .* is held by another controller", {},
         {"Failed to enqueue"}, {}, {"kept.png"}, 1, std::chrono::seconds(2), {},
         {"stream", "--seconds", "60", "--timeout", "none"}},
        {"stream, killed", stock.back(), {"stream", "--seconds", "60", "--timeout", "1000"}, killCamera, 7,
         "camera disconnected after [1-9][0-9]* frames", {"(camera disconnected)"}},
        {"stream, frozen", stock[stock.size() - 2], {"stream", "--seconds", "60", "--timeout", "1000"}, freezeCamera,
         7, "camera disconnected after [1-9][0-9]* frames", {"(camera disconnected)"}},
        // Free running, the camera sends more than a second's frames, far fewer than 120.
        {"sequence, killed", stock.front(), {"sequence", "120", "--keep-partial", "-o", "kept"}, killCamera, 7,
         "camera disconnected after [1-9][0-9]* frames; [1-9][0-9]* images kept \\(--keep-partial\\)", {},
         {"Failed to stop camera stream"}, {"kept/image_000.png", "kept/sequence.json"}, {"kept/image_119.png"}, 1,
         std::chrono::seconds(10)},
        {"stream, packets lost", Tavri::gige::lossySerial(), {"stream", "--seconds", "2"}, nullptr, 4,
         "packet loss: [0-9]+ frames complete, [1-9][0-9]* incomplete; [1-9][0-9]* packets missing, [0-9]+ resent",
         {}, {"disconnected", " lost (", "no image within"}, {}, {}, 3},
    };
    for (const auto& c : cases) {
        for (int run = 0; run < c.runs; ++run) {
            SCOPED_TRACE(std::string(c.name) + ", run " + std::to_string(run + 1));
            std::string folder = (fs::temp_directory_path() / "teli-grab-gige-XXXXXX").string();
            ASSERT_NE(mkdtemp(folder.data()), nullptr);
            // The stock camera has no trigger line: run it on the driver's software trigger.
            const std::vector<std::string> common{"--sdk",       "aravis", "--serial", c.serial, "--log-level", "1",
                                                  "--set",       "Camera/TriggerType=Software"};
            auto arguments = common;
            for (const auto& argument : c.arguments)
                arguments.push_back(argument.rfind("kept", 0) == 0 ? (fs::path(folder) / argument).string() : argument);
            std::optional<Tool> holder;
            if (!c.holder.empty()) {
                // The holder waits on the camera's trigger line, which nothing pulses: it
                // holds the camera and takes no frame, so no stream fault can end it early.
                std::vector<std::string> holding{"--sdk", "aravis", "--serial", c.serial, "--log-level", "1"};
                holding.insert(holding.end(), c.holder.begin(), c.holder.end());
                fs::create_directory(fs::path(folder) / "holder");
                holder.emplace(holding, fs::path(folder) / "holder");
                ASSERT_TRUE(holder->waitForStderr("Updating camera settings", std::chrono::seconds(30))) << holder->err();
            }
            {
                Tool tool(arguments, folder);
                if (c.lose) {
                    ASSERT_TRUE(tool.waitForStderr("Updating camera settings", std::chrono::seconds(30))) << tool.err();
                    std::this_thread::sleep_for(std::chrono::seconds(1));  // a few frames first
                    ASSERT_TRUE(c.lose(c.serial));
                }
                const auto lost = Clock::now();
                const bool ended = tool.waitForExit(c.lose ? c.limit : std::chrono::seconds(60));
                if (c.lose) killCamera(c.serial);  // a frozen camera goes now
                if (!ended) {
                    // Say how late it was, to tell a slow detection from a hang.
                    const bool late = tool.waitForExit(std::chrono::seconds(28));
                    FAIL() << "teli-grab still running " << c.limit.count() << " s after the loss; "
                           << (late ? "it ended after " +
                                          std::to_string(std::chrono::duration<double>(Clock::now() - lost).count()) +
                                          " s with exit " + std::to_string(tool.exitCode())
                                    : std::string("it had not ended after 30 s"))
                           << "\n" << tool.out() << tool.err();
                }
                // A holder that ended would have let the camera go: that is no verdict on the tool.
                if (holder) {
                    ASSERT_FALSE(holder->waitForExit(std::chrono::milliseconds(0)))
                        << "the holder ended before the tool was done: " << holder->err();
                }
                const std::string held = holder ? "holder: " + holder->err() : std::string();
                EXPECT_EQ(tool.exitCode(), c.exitCode) << tool.out() << tool.err() << held;
                EXPECT_THAT(tool.err(), ::testing::ContainsRegex(c.inStderr)) << tool.out();
                for (const auto& part : c.inStdout) EXPECT_THAT(tool.out(), ::testing::HasSubstr(part));
                for (const auto& part : c.notInStderr) EXPECT_THAT(tool.err(), ::testing::Not(::testing::HasSubstr(part)));
                for (const auto& part : c.onceInStderr) {
                    const auto err = tool.err();
                    const auto first = err.find(part);
                    EXPECT_TRUE(first != std::string::npos && err.find(part, first + 1) == std::string::npos)
                        << part << " not told once:\n" << err;
                }
            }
            for (const auto& file : c.files) EXPECT_TRUE(fs::exists(fs::path(folder) / file)) << file;
            for (const auto& file : c.absentFiles) EXPECT_FALSE(fs::exists(fs::path(folder) / file)) << file;
            fs::remove_all(folder);
        }
    }
}

}  // namespace
