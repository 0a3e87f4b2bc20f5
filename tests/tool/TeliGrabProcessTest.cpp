// teli-grab as a user runs it: a separate process that loads the plug-in, on the
// simulated rig (TAVRI_TELI_SDK=sim), so no network is touched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <sstream>

namespace Tavri::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

struct Outcome {
    int exitCode;  // 137 when `timeout` killed it
    std::string out, err;
};

std::string describe(const Outcome& outcome) {
    return "exit " + std::to_string(outcome.exitCode) + "\n--- stdout\n" + outcome.out + "\n--- stderr\n" + outcome.err;
}

std::string slurp(const std::string& fileName) {
    std::ostringstream text;
    text << std::ifstream(fileName, std::ios::binary).rdbuf();
    return text.str();
}

std::string quoted(const std::string& word) {
    std::string result = "'";
    for (char c : word) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

// Unless a case brings its own rig, teli-grab runs on two small cameras: a sequence
// gives each image only 500 ms, and a full-size first frame takes longer than that in
// a sanitizer build.
class TeliGrab : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "teli-grab-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
        write("rig.json", R"({"seed": 1, "projector": {"rate": 60}, "cameras": [
            {"serial": "SIMA", "model": "MODEL-A", "vendor": "Vendor A", "width": 320, "height": 240},
            {"serial": "SIMB", "model": "MODEL-B", "vendor": "Vendor B", "width": 320, "height": 240}]})");
        // The fourth frame comes 800 ms late, after the sequence worker's 500 ms wait.
        write("late.json", R"({"seed": 1, "projector": {"rate": 60},
            "cameras": [{"serial": "SIMLATE", "width": 160, "height": 120,
                         "frameFaults": [{"kind": "late", "first": 3, "count": 1, "delayMs": 800}]}]})");
    }
    void TearDown() override { fs::remove_all(scratch_); }

    // stdin from /dev/null; `timeout` kills the process by its id after a minute.
    Outcome run(std::vector<std::string> arguments) const {
        if (std::find(arguments.begin(), arguments.end(), "--rig") == arguments.end())
            arguments.insert(arguments.begin(), {"--rig", path("rig.json")});
        std::string command = "TAVRI_TELI_SDK=sim timeout -s KILL 60 " + quoted(TELI_GRAB_EXE);
        for (const auto& argument : arguments) command += " " + quoted(argument);
        command += " </dev/null >" + quoted(path("stdout")) + " 2>" + quoted(path("stderr"));
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(path("stdout")), slurp(path("stderr"))};
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

TEST_F(TeliGrab, RefusalsExitWithTheirCodeAndNameTheCause) {
    write("not-a-library.so", "plain text\n");
    write("broken.json", "{\n  \"ExposureTime\": 1000,\n  oops\n}\n");
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::vector<std::string> inStderr;
        bool needsCamera = false;
    } cases[] = {
        {{"--plugin", path("missing.so"), "list"}, 2,
         {"teli-grab: error: ", path("missing.so"), "cannot open shared object file"}},
        {{"--plugin", path("not-a-library.so"), "list"}, 2, {path("not-a-library.so")}},
        {{"--plugin", HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "list"}, 2,
         {HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "no entry point"}},
        {{"apply", path("broken.json")}, 5, {path("broken.json"), "line 3"}},
        {{"apply", path("absent.json")}, 5, {path("absent.json")}},
        {{"--set", "ExposureTime", "settings"}, 1, {"Key=Value", "'ExposureTime'"}},
        {{"--set", "=5", "settings"}, 1, {"Key=Value", "'=5'"}},
        {{"--set", "Camera/Gain=2", "--set", "Camera=1", "settings"}, 1, {"--set 'Camera=1'"}},
        {{}, 1, {"subcommand"}},
        {{"--sdk", "bogus", "list"}, 1, {"bogus"}},
        {{"sequence", "0", "-o", path("none")}, 1, {"count"}},
        {{"--serial", "NO-SUCH-SERIAL", "grab", "-o", path("x.png")}, 3, {"NO-SUCH-SERIAL", "SIMA", "SIMB"}, true},
        {{"--set", "Camera/ColorMode=Blue", "settings"}, 4, {"Invalid color mode"}, true},
        {{"sequence", "121", "-o", path("long")}, 4, {"121"}, true},  // more than the request pool
        // The late image is lost, which the driver reports only in its log.
        {{"--rig", path("late.json"), "sequence", "6", "-o", path("lost")}, 4, {"An unknown error occured"}, true},
    };
    for (const auto& c : cases) {
        if (c.needsCamera && !TOOL_TEST_HAVE_SIM) continue;
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        const auto outcome = run(c.arguments);
        EXPECT_EQ(outcome.exitCode, c.exitCode) << describe(outcome);
        for (const auto& part : c.inStderr) EXPECT_THAT(outcome.err, HasSubstr(part));
    }
    for (const char* name : {"none", "x.png", "long", "lost"})
        EXPECT_FALSE(fs::exists(path(name))) << name << " written by a refused command";
}

TEST_F(TeliGrab, ListsSequencesAndGrabsInEveryMode) {
    SKIP_WITHOUT_SIM();
    const auto listed = run({"list"});
    ASSERT_EQ(listed.exitCode, 0) << describe(listed);
    EXPECT_THAT(listed.out, ::testing::ContainsRegex("^SERIAL +MODEL +VENDOR\n"
                                                     "SIMA +MODEL-A +Vendor A\n"
                                                     "SIMB +MODEL-B +Vendor B\n$"));

    const auto sequence = run({"sequence", "12", "-o", path("seq")});
    ASSERT_EQ(sequence.exitCode, 0) << describe(sequence);
    EXPECT_THAT(sequence.out, HasSubstr("fps"));
    std::vector<cv::Mat> images;
    for (int i = 0; i < 12; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "seq/image_%03d.png", i);
        images.push_back(cv::imread(path(name), cv::IMREAD_UNCHANGED));
        ASSERT_FALSE(images.back().empty()) << name;
        EXPECT_EQ(images.back().type(), CV_8UC1) << "a freshly opened camera delivers Raw mosaics";
        EXPECT_EQ(images.back().size(), cv::Size(320, 240));
        if (i > 0) {
            EXPECT_GT(cv::norm(images.back(), images[i - 1], cv::NORM_INF), 0) << "the projector's next pattern";
        }
    }
    EXPECT_FALSE(fs::exists(path("seq/image_012.png")));
    EXPECT_EQ(cv::imread(path("seq/contact_sheet.png"), cv::IMREAD_UNCHANGED).type(), CV_8UC3);

    const std::vector<std::pair<std::vector<std::string>, int>> modes{
        {{"--mode", "gray"}, CV_8UC1},
        {{"--mode", "color"}, CV_8UC3},
        {{"--mode", "raw"}, CV_8UC1},
        {{"--mode", "raw", "--debayer"}, CV_8UC3},
    };
    for (const auto& [arguments, type] : modes) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        auto grab = arguments;
        grab.insert(grab.end(), {"grab", "-o", path("one.png")});
        const auto grabbed = run(grab);
        ASSERT_EQ(grabbed.exitCode, 0) << describe(grabbed);
        const cv::Mat image = cv::imread(path("one.png"), cv::IMREAD_UNCHANGED);
        EXPECT_EQ(image.size(), cv::Size(320, 240));
        EXPECT_EQ(image.type(), type);
        fs::remove(path("one.png"));
    }
}

TEST_F(TeliGrab, SettingsRoundTripThroughApply) {
    SKIP_WITHOUT_SIM();
    const auto defaults = settingsJson({"settings"});
    const auto changed = settingsJson({"--set", "ExposureTime=20000", "--set", "Camera/Gain=3", "settings"});
    ASSERT_NE(changed, defaults) << "--set changed nothing";
    EXPECT_EQ(changed["Camera"]["TriggerType"], "Hardware");

    // A fresh process starts from the defaults again; the file alone must bring the
    // camera back to the changed state.
    write("changed.json", changed.dump(2));
    EXPECT_EQ(settingsJson({"apply", path("changed.json")}), changed);

    // --set is applied after the file.
    const auto overridden = settingsJson({"--set", "ExposureTime=12000", "apply", path("changed.json")});
    EXPECT_EQ(overridden["Camera"]["Gain"], changed["Camera"]["Gain"]);
    EXPECT_NE(overridden["ExposureTime"], changed["ExposureTime"]);
}

// Continuous grabbing waits up to --timeout per image: it counts frames while
// streaming and collects the image a sequence loses.
TEST_F(TeliGrab, ContinuousGrabbingCountsFramesAndWaitsForALateOne) {
    SKIP_WITHOUT_SIM();
    const auto streamed = run({"stream", "--seconds", "1"});
    ASSERT_EQ(streamed.exitCode, 0) << describe(streamed);
    EXPECT_THAT(streamed.err, HasSubstr("\rframes"));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(streamed.out, match, std::regex("stream: ([0-9]+) frames"))) << streamed.out;
    EXPECT_GT(std::stol(match[1]), 0);

    const auto timed = run({"--rig", path("late.json"), "sequence", "6", "--per-image-times", "-o", path("timed")});
    ASSERT_EQ(timed.exitCode, 0) << describe(timed);
    EXPECT_THAT(timed.out, HasSubstr("arrival ms"));
    EXPECT_EQ(cv::imread(path("timed/image_005.png"), cv::IMREAD_UNCHANGED).size(), cv::Size(160, 120));
}

}  // namespace
}  // namespace Tavri::testing
