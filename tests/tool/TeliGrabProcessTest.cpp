// teli-grab as a user runs it: a separate process that loads the plug-in, on the
// simulated rig (TAVRI_TELI_SDK=sim), so no network is touched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <algorithm>
#include <regex>
#include <sstream>

#include "ProcessRunner.h"

namespace Tavri::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::string describe(const ProcessResult& result) {
    std::ostringstream text;
    text << "exit " << result.exitCode << (result.timedOut ? " (timed out)" : "") << " signal " << result.signal
         << "\n--- stdout\n"
         << result.out << "\n--- stderr\n"
         << result.err;
    return text.str();
}

class TeliGrabProcess : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "teli-grab-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
    }
    void TearDown() override { fs::remove_all(scratch_); }

    ProcessResult run(const std::vector<std::string>& arguments) {
        return runProcess(TELI_GRAB_EXE, arguments, {{"TAVRI_TELI_SDK", "sim"}}, scratch_.string());
    }
    std::string path(const std::string& name) const { return (scratch_ / name).string(); }
    void writeFile(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }

    fs::path scratch_;
};

// Cases that drive a camera: they need the simulated rig in the plug-in. Unless a case
// brings its own, they run on two small cameras: a sequence gives each image only
// 500 ms, and a full-size first frame takes longer than that in a sanitizer build.
class TeliGrabOnSim : public TeliGrabProcess {
protected:
    void SetUp() override {
        if (!TOOL_TEST_HAVE_SIM) GTEST_SKIP() << "the plug-in is built without the simulated rig (TAVRI_WITH_SIM)";
        TeliGrabProcess::SetUp();
        writeFile("rig.json", R"({"seed": 1, "projector": {"rate": 60}, "cameras": [
            {"serial": "SIMA", "model": "MODEL-A", "vendor": "Vendor A", "width": 320, "height": 240},
            {"serial": "SIMB", "model": "MODEL-B", "vendor": "Vendor B", "width": 320, "height": 240}]})");
    }

    ProcessResult run(std::vector<std::string> arguments) {
        if (std::find(arguments.begin(), arguments.end(), "--rig") == arguments.end())
            arguments.insert(arguments.begin(), {"--rig", path("rig.json")});
        return TeliGrabProcess::run(arguments);
    }

    std::vector<std::string> serials() {
        const auto listed = run({"list"});
        EXPECT_EQ(listed.exitCode, 0) << describe(listed);
        std::istringstream lines(listed.out);
        std::string line;
        std::vector<std::string> found;
        std::getline(lines, line);  // header
        while (std::getline(lines, line))
            if (!line.empty()) found.push_back(line.substr(0, line.find(' ')));
        return found;
    }

    nlohmann::json settingsJson(const std::vector<std::string>& arguments) {
        const auto result = run(arguments);
        EXPECT_EQ(result.exitCode, 0) << describe(result);
        return nlohmann::json::parse(result.out);
    }
};

struct ErrorCase {
    std::string name;
    std::vector<std::string> arguments;
    int exitCode;
    std::vector<std::string> messageParts;  // each must appear on stderr
};

void expectError(const ProcessResult& result, const ErrorCase& expected) {
    EXPECT_EQ(result.exitCode, expected.exitCode) << describe(result);
    for (const auto& part : expected.messageParts) EXPECT_THAT(result.err, HasSubstr(part)) << expected.name;
}

// Refusals that need no camera: the plug-in is never reached, or cannot be.
TEST_F(TeliGrabProcess, RefusesWithTheDocumentedExitCodeAndNamesTheCause) {
    writeFile("not-a-library.so", "plain text\n");
    writeFile("broken.json", "{\n  \"ExposureTime\": 1000,\n  oops\n}\n");
    const std::vector<ErrorCase> cases{
        {"missing plug-in", {"--plugin", path("missing.so"), "list"}, 2,
         {"teli-grab: error: ", path("missing.so"), "cannot open shared object file"}},
        {"not a library", {"--plugin", path("not-a-library.so"), "list"}, 2, {path("not-a-library.so")}},
        {"library without entry points", {"--plugin", HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "list"}, 2,
         {HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "no entry point"}},
        {"settings file with a syntax error", {"apply", path("broken.json")}, 5, {path("broken.json"), "line 3"}},
        {"settings file that does not exist", {"apply", path("absent.json")}, 5, {path("absent.json")}},
        {"assignment without '='", {"--set", "ExposureTime", "settings"}, 1, {"Key=Value", "ExposureTime"}},
        {"no subcommand", {}, 1, {"subcommand"}},
        {"unknown backend", {"--sdk", "bogus", "list"}, 1, {"bogus"}},
        {"sequence of no images", {"sequence", "0", "-o", path("out")}, 1, {"count"}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        expectError(run(testCase.arguments), testCase);
    }
}

TEST_F(TeliGrabOnSim, RefusesWhatTheCameraOrDriverRefuses) {
    const auto present = serials();
    ASSERT_FALSE(present.empty());
    ErrorCase unknownSerial{"unknown serial", {"--serial", "NO-SUCH-SERIAL", "grab", "-o", path("x.png")}, 3,
                            {"NO-SUCH-SERIAL"}};
    unknownSerial.messageParts.insert(unknownSerial.messageParts.end(), present.begin(), present.end());
    const std::vector<ErrorCase> cases{
        unknownSerial,
        {"colour-mode word the driver does not know", {"--set", "Camera/ColorMode=Blue", "settings"}, 4,
         {"Invalid color mode"}},
        {"sequence longer than the request pool", {"sequence", "121", "-o", path("long")}, 4, {"121"}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        expectError(run(testCase.arguments), testCase);
    }
    EXPECT_FALSE(fs::exists(path("x.png")));
    EXPECT_FALSE(fs::exists(path("long/image_000.png")));
}

TEST_F(TeliGrabOnSim, ListsEveryCameraOfTheRigInOrder) {
    const auto listed = run({"list"});
    ASSERT_EQ(listed.exitCode, 0) << describe(listed);
    EXPECT_THAT(listed.out, ::testing::ContainsRegex("^SERIAL +MODEL +VENDOR\n"
                                                     "SIMA +MODEL-A +Vendor A\n"
                                                     "SIMB +MODEL-B +Vendor B\n$"));
}

TEST_F(TeliGrabOnSim, SequenceWritesEveryImageAndAContactSheet) {
    const auto result = run({"sequence", "12", "-o", path("seq")});
    ASSERT_EQ(result.exitCode, 0) << describe(result);
    EXPECT_THAT(result.out, HasSubstr("fps"));

    std::vector<cv::Mat> images;
    for (int i = 0; i < 12; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "seq/image_%03d.png", i);
        images.push_back(cv::imread(path(name), cv::IMREAD_UNCHANGED));
        ASSERT_FALSE(images.back().empty()) << name;
        EXPECT_EQ(images.back().type(), CV_8UC1) << "a freshly opened camera delivers Raw mosaics";
        EXPECT_EQ(images.back().size(), cv::Size(320, 240));
    }
    EXPECT_FALSE(fs::exists(path("seq/image_012.png")));
    bool anyDiffers = false;
    for (const auto& image : images) anyDiffers = anyDiffers || cv::norm(image, images.front(), cv::NORM_INF) > 0;
    EXPECT_TRUE(anyDiffers) << "the projector shows a different pattern for every image";

    const cv::Mat sheet = cv::imread(path("seq/contact_sheet.png"), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(sheet.empty());
    EXPECT_EQ(sheet.type(), CV_8UC3);

    // A single grab delivers the same geometry.
    const auto grabbed = run({"grab", "-o", path("one.png")});
    ASSERT_EQ(grabbed.exitCode, 0) << describe(grabbed);
    const cv::Mat one = cv::imread(path("one.png"), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(one.empty());
    EXPECT_EQ(one.size(), images.front().size());
    EXPECT_EQ(one.type(), CV_8UC1);
}

// The fourth frame comes 800 ms late: the sequence worker waits 500 ms per image, so
// it loses that image and every later one, which the driver reports only in its log.
TEST_F(TeliGrabOnSim, SequenceThatLosesAnImageIsRefusedAndPerImageTimingStillCollectsIt) {
    writeFile("late.json", R"({"seed": 1, "projector": {"rate": 60},
        "cameras": [{"serial": "SIMLATE", "width": 160, "height": 120,
                     "frameFaults": [{"kind": "late", "first": 3, "count": 1, "delayMs": 800}]}]})");
    const auto lost = run({"--rig", path("late.json"), "sequence", "6", "-o", path("lost")});
    EXPECT_EQ(lost.exitCode, 4) << describe(lost);
    EXPECT_THAT(lost.err, HasSubstr("An unknown error occured"));
    EXPECT_FALSE(fs::exists(path("lost"))) << "images with undefined content were written";

    // Continuous grabbing waits up to --timeout per image and gets the late one too.
    const auto timed = run({"--rig", path("late.json"), "sequence", "6", "--per-image-times", "-o", path("timed")});
    ASSERT_EQ(timed.exitCode, 0) << describe(timed);
    EXPECT_THAT(timed.out, HasSubstr("arrival ms"));
    EXPECT_TRUE(fs::exists(path("timed/image_005.png")));
    EXPECT_EQ(cv::imread(path("timed/image_005.png"), cv::IMREAD_UNCHANGED).size(), cv::Size(160, 120));
}

TEST_F(TeliGrabOnSim, ModeDecidesTheChannelsOfEveryWrittenImage) {
    const std::vector<std::pair<std::vector<std::string>, int>> cases{
        {{"--mode", "gray"}, CV_8UC1},
        {{"--mode", "color"}, CV_8UC3},
        {{"--mode", "raw"}, CV_8UC1},
        {{"--mode", "raw", "--debayer"}, CV_8UC3},
    };
    for (std::size_t c = 0; c < cases.size(); ++c) {
        const std::string directory = path("mode" + std::to_string(c));
        auto arguments = cases[c].first;
        arguments.insert(arguments.end(), {"sequence", "3", "-o", directory});
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const auto result = run(arguments);
        ASSERT_EQ(result.exitCode, 0) << describe(result);
        for (const char* name : {"image_000.png", "image_002.png"}) {
            const cv::Mat image = cv::imread(directory + "/" + name, cv::IMREAD_UNCHANGED);
            ASSERT_FALSE(image.empty()) << name;
            EXPECT_EQ(image.type(), cases[c].second) << name;
        }
    }
}

TEST_F(TeliGrabOnSim, SettingsRoundTripThroughApply) {
    const auto defaults = settingsJson({"settings"});
    const auto changed = settingsJson({"--set", "ExposureTime=20000", "--set", "Camera/Gain=3", "settings"});
    ASSERT_NE(changed, defaults) << "--set changed nothing";
    EXPECT_EQ(changed["Camera"]["TriggerType"], "Hardware");

    // A fresh process starts from the defaults again; the file alone must bring the
    // camera back to the changed state.
    writeFile("changed.json", changed.dump(2));
    EXPECT_EQ(settingsJson({"apply", path("changed.json")}), changed);

    // --set is applied after the file.
    const auto overridden = settingsJson({"--set", "ExposureTime=12000", "apply", path("changed.json")});
    EXPECT_EQ(overridden["Camera"]["Gain"], changed["Camera"]["Gain"]);
    EXPECT_NE(overridden["ExposureTime"], changed["ExposureTime"]);
}

TEST_F(TeliGrabOnSim, StreamShowsProgressAndCountsFrames) {
    const auto result = run({"stream", "--seconds", "1"});
    ASSERT_EQ(result.exitCode, 0) << describe(result);
    EXPECT_THAT(result.err, HasSubstr("\rframes"));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.out, match, std::regex("stream: ([0-9]+) frames"))) << result.out;
    EXPECT_GT(std::stol(match[1]), 0);
}

}  // namespace
}  // namespace Tavri::testing
