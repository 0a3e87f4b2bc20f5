// teli-grab as a user runs it: a separate process that loads the plug-in, on the
// simulated rig (TAVRI_TELI_SDK=sim), so no network is touched. The rig files give the
// faults: a projector too slow to trigger anything in time (a camera without trigger
// wiring), a camera unplugged mid-stream, a hung camera, dropped and late frames.

#include "ToolProcess.h"

namespace Tavri::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(TeliGrab, EveryFailureExitsWithItsCodeAndNamesItsCause) {
    write("not-a-library.so", "plain text\n");
    write("broken.json", "{\n  \"ExposureTime\": 1000,\n  oops\n}\n");
    write("typo.json", "{\n  \"Camera\": {\n    \"Gian\": 3\n  }\n}\n");
    write("fast.json", R"({"ExposureTime": "fast"})");
    write("overflow.json", "{\n \"Camera\": {\"Gain\": 1e400}}");
    write("misspelt-word.json", R"({"Camera": {"TriggerType": "Sofware"}})");
    write("refused.json", R"({"Camera": {"Gain": 1000}})");
    std::string manyKeys = "{";
    for (int k = 0; k < 200000; ++k) manyKeys += (k ? ",\n  \"K" : "\n  \"K") + std::to_string(k) + "\": 0";
    write("many-keys.json", manyKeys + "\n}\n");
    write("a-file", "");
    const std::string tooLong = path(std::string(300, 'x') + ".png");
    const How fullDisk{0, "", false, true};
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::vector<std::string> inStderr, notInStderr = {}, inStdout = {};
        bool needsCamera = false;
        How how = {};
    } cases[] = {
        // Plug-in, command line and output paths: refused before any camera is opened.
        {{"--plugin", path("missing.so"), "list"}, 2,
         {"teli-grab: error: ", path("missing.so"), "cannot open shared object file"}},
        {{"--plugin", path("not-a-library.so"), "list"}, 2, {path("not-a-library.so")}},
        {{"--plugin", HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "list"}, 2,
         {HOST_LIBRARY_WITHOUT_ENTRY_POINTS, "no entry point"}},
        {{}, 1, {"a command is required"}},
        {{"lsit"}, 1, {"unknown command 'lsit'", "list, settings, apply, grab, sequence, stream"}},
        {{"--sdk", "bogus", "list"}, 1, {"bogus"}},
        {{"sequence", "0", "-o", path("none")}, 1, {"count: Value 0 not in range 1 to 120"}},
        {{"sequence", "121", "-o", path("long")}, 1, {"count: Value 121 not in range 1 to 120"}},
        {{"sequence", "121", "--per-image-times", "-o", path("long")}, 1, {"not in range 1 to 120"}},
        {{"stream", "--timeout", "0"}, 1, {"--timeout: '0' is neither a positive number of milliseconds nor 'none'"}},
        {{"stream", "--timeout", "-1"}, 1, {"'-1' is neither"}},
        {{"stream", "--seconds", "nan"}, 1, {"--seconds: 'nan' is not a finite number"}, {kDriverStarted}},
        {{"--log-level", "loud", "list"}, 1, {"'loud' is not a log level (0-4, debug, info"}, {kDriverStarted}},
        {{"--log-level", "debug", "list"}, 0, {kDriverStarted}, {}, {"SIMA"}, true},
        {{"sequence", "3", "--timeout", "100", "-o", path("none")}, 1, {"--timeout requires --per-image-times"}},
        {{"grab", "-o", path("x.bmp")}, 1, {"cannot tell the image format of", ".png, .jpg, .jpeg, .tif or .tiff"}},
        {{"--log-level", "1", "grab", "-o", path("no/such/dir/x.png")}, 6,
         {"cannot write into '" + path("no/such/dir") + "': No such file or directory"}, {kDriverStarted}},
        {{"--log-level", "1", "sequence", "3", "-o", path("a-file/sub")}, 6,
         {"'" + path("a-file/sub") + "': Not a directory"}, {kDriverStarted}},
        // Standard output on a full disk: nothing may pass as written.
        {{"--help"}, 6, {"cannot write to standard output: No space left on device"}, {}, {}, false, fullDisk},
        {{"list"}, 6, {"cannot write to standard output: No space left on device"}, {}, {}, true, fullDisk},
        {{"settings"}, 6, {"cannot write to standard output: No space left on device"}, {}, {}, true, fullDisk},
        {{"stream", "--seconds", "0.2"}, 6, {"cannot write to standard output: No space left on device"}, {}, {}, true,
         fullDisk},
        // Settings: checked before anything is applied, with where and what.
        {{"--log-level", "1", "apply", path("broken.json")}, 5, {path("broken.json") + ":3:3: syntax error"},
         {kDriverStarted, "json.exception"}},
        {{"apply", path("absent.json")}, 5, {path("absent.json"), "No such file or directory"}},
        {{"--log-level", "1", "--settings", path("typo.json"), "grab", "-o", path("x.png")}, 5,
         {path("typo.json") + ":3:5: unknown key 'Camera/Gian'; known keys: ExposureTime, Camera/Gain"},
         {kDriverStarted}},
        // Read in time linear in its size: this one ends long before the run is given up.
        {{"apply", path("many-keys.json")}, 5, {path("many-keys.json") + ":2:3: unknown key 'K0'"}},
        {{"apply", path("fast.json")}, 5, {path("fast.json") + ":1:2: ExposureTime must be a finite number, not 'fast'"}},
        {{"apply", path("overflow.json")}, 5, {path("overflow.json") + ":2:13: Camera/Gain: number overflow"},
         {"json.exception"}},
        {{"apply", path("misspelt-word.json")}, 5, {"Camera/TriggerType: 'Sofware' is none of Hardware, Software"}},
        {{"--set", "ExposureTime", "settings"}, 1, {"Key=Value", "'ExposureTime'"}},
        {{"--set", "=5", "settings"}, 1, {"Key=Value", "'=5'"}},
        {{"--set", "Camera/Gain=2", "--set", "Camera=1", "settings"}, 1, {"--set 'Camera=1': 'Camera' is a group"}},
        {{"--set", "ExposureTime=nan", "settings"}, 1, {"--set 'ExposureTime=nan': ExposureTime must be a finite number"}},
        {{"--set", "Camera/Gain=1e400", "settings"}, 1, {"Camera/Gain must be a finite number, not '1e400'"}},
        {{"--set", "Camera/Gian=3", "settings"}, 1, {"unknown key 'Camera/Gian'; known keys: "}},
        {{"--set", "Camera/ColorMode=Blue", "settings"}, 1, {"'Blue' is none of Gray, Color, Raw"}},
        {{"--strict", "--settings", path("refused.json"), "grab", "-o", path("x.png")}, 5,
         {"Camera/Gain: asked 1000, camera kept 0.0"}, {}, {}, true},
        {{"--settings", path("refused.json"), "settings"}, 0, {"warning: Camera/Gain: asked 1000, camera kept 0.0"},
         {}, {}, true},
        // A value refused or not kept names the camera's range.
        {{"--rig", path("rig.json"), "--set", "ExposureTime=19", "settings"}, 4,
         {"Failed to set camera exposure: ExposureTime 19 is outside the camera's range 20 to 1000000 in steps of 1"},
         {}, {}, true},
        {{"--rig", path("rig.json"), "--set", "ExposureTime=0", "settings"}, 0,
         {"ExposureTime: asked 0, camera kept 8333.0 (the camera takes 20 to 1000000 in steps of 1)"}, {}, {}, true},
        {{"--rig", path("rig.json"), "--set", "Camera/Gain=24.05", "settings"}, 0,
         {"Camera/Gain: asked 24.05, camera kept 0.0 (the camera takes 0 to 24 in steps of 0.1)"}, {}, {}, true},
        {{"--rig", path("rig.json"), "settings", "--ranges"}, 0, {}, {"not available"},
         {"ExposureTime               8333           20      1000000          1\n",
          "RedBalance                1.875         0.25            4   0.015625\n"},
         true},
        // Cameras and acquisition.
        {{"--serial", "NO-SUCH-SERIAL", "grab", "-o", path("x.png")}, 3, {"NO-SUCH-SERIAL", "SIMA", "SIMB"}, {}, {}, true},
        {{"--rig", path("hung.json"), "grab", "-o", path("x.png")}, 3, {"no camera found"}, {}, {}, true},
        {{"--rig", path("hung.json"), "list"}, 0, {"a camera is attached but does not say who it is"},
         {"no cameras found"}, {}, true},
        {{"grab", "-o", tooLong}, 6, {"File name too long"}, {}, {}, true},
        {{"--rig", path("untriggered.json"), "grab", "-o", path("x.png")}, 4,
         {"grab: Failed to wait for camera image completion", "waits for a hardware trigger", kRunFree}, {}, {}, true},
        {{"--rig", path("untriggered.json"), "stream", "--seconds", "1", "--timeout", "none"}, 4,
         {"no image arrived in 1.", kRunFree}, {}, {"stream: 0 frames"}, true},
        {{"--rig", path("untriggered.json"), "stream", "--seconds", "60", "--timeout", "100", "--max-failures", "2"}, 4,
         {"stopped after 2 failures in a row; the last: no image within 100 ms", kRunFree}, {},
         {"2 failures (2 x no image within 100 ms)"}, true},
        {{"--rig", path("unplug.json"), "stream", "--seconds", "60", "--timeout", "none"}, 7,
         {"camera disconnected after 10 frames"}, {}, {"stream: 10 frames", "(camera disconnected)"}, true},
        {{"--rig", path("unplug.json"), "sequence", "20", "-o", path("unplugged")}, 7,
         {"camera disconnected after 10 frames", "no images written (--keep-partial writes the 10 that arrived)"}, {},
         {}, true},
        {{"--rig", path("unplug.json"), "sequence", "20", "--keep-partial", "-o", path("kept")}, 7,
         {"camera disconnected after 10 frames; 10 images kept (--keep-partial)"}, {}, {}, true},
        // A late frame on a wired trigger: no advice to let the camera run free.
        {{"--rig", path("late.json"), "sequence", "6", "-o", path("late")}, 4,
         {"sequence ended early after 3 of 6 images: Failed to wait for camera image completion",
          "no images written (--keep-partial writes the 3 that arrived)"},
         {kRunFree}, {"sequence: 3 of 6 images", "verdict: image 3: ended early"}, true},
        // One frame lost on the link: every later image shows the next pattern.
        {{"--rig", path("gap.json"), "sequence", "12", "-o", path("gap")}, 8,
         {"set not whole: image 5: pattern 5 missing: camera frame 5 then 7; images 5-11 answer triggers 6-12"}, {},
         {"sequence: 12 of 12 images"}, true},
        // A colour mode the camera refused: its Mono8 frames are no RGB8 images.
        {{"--rig", path("mono.json"), "--mode", "color", "grab", "-o", path("x.png")}, 4,
         {"the camera did not take colour mode color (RGB8): image 0 has 19200 bytes where the mode needs 57600"}, {},
         {}, true},
        {{"--rig", path("mono.json"), "--mode", "color", "sequence", "3", "-o", path("no")}, 4,
         {"the camera did not take colour mode color (RGB8): image 0 has 19200 bytes"}, {}, {}, true},
        {{"--rig", path("mono.json"), "--mode", "color", "stream", "--seconds", "1"}, 4,
         {"the camera did not take colour mode color (RGB8)"}, {}, {}, true},
        // Several cameras on one projector: matched, or refused where one falls out of step.
        {{"--rig", path("stereo.json"), "--all", "sequence", "6", "-o", path("stereo")}, 0, {}, {},
         {"SIMR verdict: whole", "match: image k of every camera answers the same trigger (judged by pulse numbers)",
          "skew of the cameras' host times: median "}, true},
        {{"--rig", path("stereo-missed.json"), "--serial", "SIML", "--serial", "SIMR", "sequence", "6", "-o",
          path("missed")}, 9,
         {"the cameras' sets disagree: SIMR image 3: answers pulse 4, SIML image 3 answers pulse 3",
          "no images written (--keep-partial writes the 12 that arrived)"}, {}, {}, true},
        {{"--rig", path("stereo-extra.json"), "--all", "sequence", "6", "--keep-partial", "-o", path("extra")}, 9,
         {"SIMR image 1: answers pulse 0, SIML image 1 answers pulse 1", "12 images kept (--keep-partial)"}, {}, {}, true},
        {{"--rig", path("stereo-unplug.json"), "--all", "sequence", "6", "-o", path("gone")}, 7,
         {"SIMR camera disconnected after 3 frames"}, {}, {"SIML verdict: whole"}, true},
        {{"--rig", path("stereo-unplug.json"), "--all", "stream", "--seconds", "2", "--timeout", "none"}, 7,
         {"SIMR: camera disconnected after 3 frames"}, {}, {"SIML stream: ", "SIMR stream: 3 frames"}, true},
        {{"--all", "grab", "-o", path("x.png")}, 1,
         {"several cameras (--all, --serial twice) are taken by stream, view and sequence"}, {}, {}, true},
        // Images stop after five: the trigger is wired, so no advice to let it run free.
        {{"--rig", path("drop.json"), "sequence", "10", "--per-image-times", "--timeout", "300", "-o", path("lost")}, 4,
         {"sequence ended after 5 of 10 images: no image within 300 ms"}, {kRunFree}, {}, true},
    };
    for (const auto& c : cases) {
        if (c.needsCamera && !TOOL_TEST_HAVE_SIM) continue;
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        const auto outcome = run(c.arguments, c.how);
        EXPECT_EQ(outcome.exitCode, c.exitCode) << describe(outcome);
        for (const auto& part : c.inStderr) EXPECT_THAT(outcome.err, HasSubstr(part));
        for (const auto& part : c.notInStderr) EXPECT_THAT(outcome.err, Not(HasSubstr(part)));
        for (const auto& part : c.inStdout) EXPECT_THAT(outcome.out, HasSubstr(part));
    }
    for (const char* name : {"none", "x.png", "long", "lost", "no", "a-file/sub"})
        EXPECT_FALSE(fs::exists(path(name))) << name << " written by a refused command";
    // A sequence that ran leaves its record, and no image unless asked to.
    for (const char* name : {"late", "gap", "unplugged", "missed", "gone"}) {
        EXPECT_TRUE(fs::exists(path(name) + "/sequence.json")) << name;
        EXPECT_FALSE(fs::exists(path(name) + "/image_000.png")) << name;
    }
    EXPECT_TRUE(fs::exists(path("kept/image_009.png")));
    EXPECT_FALSE(fs::exists(path("kept/image_010.png")));
    EXPECT_FALSE(fs::exists(path("missed/SIML"))) << "a set whose cameras disagree is never written whole";
    for (const char* image : {"stereo/SIML/image_005.png", "stereo/SIMR/image_005.png", "stereo/contact_sheet.png",
                              "extra/SIMR/image_005.png"})
        EXPECT_TRUE(fs::exists(path(image))) << image;
    EXPECT_NE(slurp(path("stereo/sequence.json")).find(R"("match": "matched")"), std::string::npos);
    EXPECT_NE(slurp(path("gap/sequence.json")).find(R"("cause": "missing trigger")"), std::string::npos);
    EXPECT_EQ(std::count_if(fs::directory_iterator(scratch_), fs::directory_iterator(),
                            [](const fs::directory_entry& e) { return e.path().filename().string().front() == '.'; }),
              0)
        << "a temporary file was left behind";
}

// Every command ends on SIGINT, SIGTERM, SIGHUP or SIGPIPE whatever it waits for,
// releases the camera and the driver, exits 128 + the signal and leaves no file.
TEST_F(TeliGrab, SignalsEndEveryCommandAndReleaseTheDriver) {
    SKIP_WITHOUT_SIM();
    const char* const cameraOpen = "Initializing camera with index";
    const struct {
        std::vector<std::string> arguments;
        int signal, exitCode;
    } cases[] = {
        {{"--rig", path("untriggered.json"), "stream", "--seconds", "600", "--timeout", "none"}, SIGINT, 130},
        {{"--rig", path("untriggered.json"), "stream", "--seconds", "600", "--timeout", "none"}, SIGTERM, 143},
        {{"--rig", path("untriggered.json"), "stream", "--seconds", "600", "--timeout", "none"}, SIGHUP, 129},
        {{"--rig", path("untriggered.json"), "grab", "-o", path("out.png")}, SIGPIPE, 141},
        {{"--rig", path("untriggered.json"), "grab", "-o", path("out.png")}, SIGINT, 130},
        {{"--rig", path("untriggered.json"), "sequence", "3", "--per-image-times", "--timeout", "none", "-o",
          path("out")},
         SIGTERM, 143},
        // The driver's worker cannot be cut short: the tool waits for it, then releases.
        {{"sequence", "120", "-o", path("out")}, SIGINT, 130},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments) + " signal " + std::to_string(c.signal));
        auto arguments = c.arguments;
        arguments.insert(arguments.begin(), {"--log-level", "1"});
        const auto outcome = run(arguments, {c.signal, cameraOpen});
        EXPECT_EQ(outcome.exitCode, c.exitCode) << describe(outcome);
        EXPECT_THAT(outcome.err, HasSubstr(kDriverReleased));
        EXPECT_FALSE(fs::exists(path("out.png")));
        EXPECT_FALSE(fs::exists(path("out")));
    }
}

TEST_F(TeliGrab, ListsSequencesAndGrabsInEveryModeAndFormat) {
    SKIP_WITHOUT_SIM();
    const auto version = run({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.out, ::testing::MatchesRegex("teli-grab [0-9]+\\.[0-9]+(\\.[0-9]+)*\n"));

    const auto listed = run({"list"});
    ASSERT_EQ(listed.exitCode, 0) << describe(listed);
    // The simulator tells no transport address.
    EXPECT_THAT(listed.out, ::testing::ContainsRegex("^SERIAL +MODEL +VENDOR +ADDRESS\n"
                                                     "SIMA +MODEL-A +Vendor A +-\n"
                                                     "SIMB +MODEL-B +Vendor B +-\n$"));

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

    // An early end with --keep-partial writes what arrived, and still fails.
    const auto partial = run({"--rig", path("late.json"), "sequence", "6", "--keep-partial", "--format", "tiff", "-o",
                              path("partial")});
    EXPECT_EQ(partial.exitCode, 4) << describe(partial);
    EXPECT_TRUE(fs::exists(path("partial/image_002.tif")));
    EXPECT_FALSE(fs::exists(path("partial/image_003.tif")));
    EXPECT_TRUE(fs::exists(path("partial/contact_sheet.tif")));

    // The colour-mode key reaches the camera as --mode does: full colour, not a mosaic
    // read as RGB (two channels of three nearly black).
    write("color.json", R"({"Camera": {"ColorMode": "Color"}})");
    const struct {
        std::vector<std::string> arguments;
        std::string file, magic;
        int type;
    } grabs[] = {
        {{"--mode", "gray"}, "one.png", "\x89PNG", CV_8UC1},
        {{"--mode", "color"}, "color.png", "\x89PNG", CV_8UC3},
        {{"--settings", path("color.json")}, "key.png", "\x89PNG", CV_8UC3},
        {{"--set", "Camera/ColorMode=Color"}, "set.jpeg", "\xFF\xD8\xFF", CV_8UC3},
        {{"--mode", "raw"}, "raw.TIFF", "II*", CV_8UC1},
        {{"--mode", "raw", "--debayer"}, "debayered.jpg", "\xFF\xD8\xFF", CV_8UC3},
    };
    for (const auto& g : grabs) {
        SCOPED_TRACE(::testing::PrintToString(g.arguments) + " " + g.file);
        auto arguments = g.arguments;
        arguments.insert(arguments.end(), {"grab", "-o", path(g.file)});
        const auto grabbed = run(arguments);
        ASSERT_EQ(grabbed.exitCode, 0) << describe(grabbed);
        EXPECT_EQ(slurp(path(g.file)).substr(0, g.magic.size()), g.magic) << "format follows the extension";
        const cv::Mat image = cv::imread(path(g.file), cv::IMREAD_UNCHANGED);
        EXPECT_EQ(image.size(), cv::Size(320, 240));
        EXPECT_EQ(image.type(), g.type);
        EXPECT_THAT(grabbed.out, HasSubstr(std::to_string(CV_MAT_CN(g.type)) + " channel(s)"));
    }
    const cv::Scalar byMode = cv::mean(cv::imread(path("color.png"))), byKey = cv::mean(cv::imread(path("key.png")));
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(byKey[channel], byMode[channel], 0.1 * byMode[channel] + 1) << "channel " << channel;
}

TEST_F(TeliGrab, SettingsRoundTripThroughApplyAndSettingsFiles) {
    SKIP_WITHOUT_SIM();
    const auto defaults = settingsJson({"settings"});
    const auto changed = settingsJson({"--set", "ExposureTime=20000", "--set", "Camera/Gain=3", "--set",
                                       "Camera/ColorMode=Color", "--set", "Camera/TriggerType=Software", "settings"});
    ASSERT_NE(changed, defaults) << "--set changed nothing";
    EXPECT_EQ(changed["Camera"]["ColorMode"], "Color");

    // A fresh process starts from the defaults again; the file alone must bring the
    // camera back to the changed state, by `apply` or by --settings.
    write("changed.json", changed.dump(2));
    EXPECT_EQ(settingsJson({"apply", path("changed.json")}), changed);
    EXPECT_EQ(settingsJson({"--strict", "--settings", path("changed.json"), "settings"}), changed);

    // --settings, then apply's file, then --set, then --mode.
    write("gain5.json", R"({"Camera": {"Gain": 5}, "ExposureTime": 30000})");
    const auto layered = settingsJson({"--settings", path("gain5.json"), "--set", "ExposureTime=12000", "--mode",
                                       "gray", "apply", path("changed.json")});
    EXPECT_EQ(layered["Camera"]["Gain"], changed["Camera"]["Gain"]);
    EXPECT_EQ(layered["ExposureTime"], 12000.0);
    EXPECT_EQ(layered["Camera"]["ColorMode"], "Gray");
}

// Continuous grabbing waits up to --timeout per image: it counts frames while
// streaming and collects the image a sequence loses. Progress shows on a terminal only.
TEST_F(TeliGrab, ContinuousGrabbingCountsFramesAndShowsProgressOnATerminalOnly) {
    SKIP_WITHOUT_SIM();
    const auto streamed = run({"stream", "--seconds", "1"});
    ASSERT_EQ(streamed.exitCode, 0) << describe(streamed);
    EXPECT_THAT(streamed.err, Not(HasSubstr("\r")));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(streamed.out, match,
                                  std::regex("stream: ([0-9]+) frames.* fps, ([0-9.]+) MB/s, .*0 failures\n")))
        << streamed.out;
    EXPECT_GT(std::stol(match[1]), 0);
    EXPECT_GT(std::stod(match[2]), 0.0);

    // Every third frame kept: frames 0, 3, 6 ..., the others not.
    const auto saving = run({"stream", "--seconds", "1", "-o", path("frames"), "--every", "3"});
    ASSERT_EQ(saving.exitCode, 0) << describe(saving);
    EXPECT_THAT(saving.out, HasSubstr("saved in " + path("frames")));
    EXPECT_EQ(cv::imread(path("frames/frame_000003.png"), cv::IMREAD_UNCHANGED).size(), cv::Size(320, 240));
    EXPECT_FALSE(fs::exists(path("frames/frame_000001.png")));

    const auto onTerminal = run({"stream", "--seconds", "1"}, {0, "", true});
    EXPECT_EQ(onTerminal.exitCode, 0) << describe(onTerminal);
    EXPECT_THAT(onTerminal.err, HasSubstr("\rframes"));

    const auto timed = run({"--rig", path("late.json"), "sequence", "6", "--per-image-times", "-o", path("timed")});
    ASSERT_EQ(timed.exitCode, 0) << describe(timed);
    EXPECT_THAT(timed.out, HasSubstr("arrival ms"));
    EXPECT_EQ(cv::imread(path("timed/image_005.png"), cv::IMREAD_UNCHANGED).size(), cv::Size(160, 120));
    EXPECT_THAT(timed.err, Not(HasSubstr("writing images")));
}

}  // namespace
}  // namespace Tavri::testing
