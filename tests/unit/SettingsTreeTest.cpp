#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/JsonText.h"
#include "TavriCommon/Settings.h"
#include "tests/support/TestHelpers.h"

namespace Tavri {
namespace {

using testing::runtimeError;

TEST(SettingsTreeTest, PathsMakeGroupsAndCopiesShareNodes) {
    TSettings tree("");
    tree.addDouble("Camera/Gain", 2.5, "");
    tree.addString("Camera/ColorMode", "Raw", "");
    tree.addDouble("ExposureTime", 8333.0, "");

    EXPECT_TRUE(tree.has("Camera"));
    EXPECT_TRUE(tree.has("Camera/Gain"));
    EXPECT_FALSE(tree.has("Camera/Gain/More"));
    EXPECT_FALSE(tree.has("Gain"));
    EXPECT_TRUE(tree["Camera"].isGroup());
    EXPECT_EQ(tree["Camera"]["Gain"].toDouble(), 2.5);
    EXPECT_EQ(tree["Camera/ColorMode"].toString(), "Raw");
    EXPECT_EQ(tree["Camera/ColorMode"].path(), "Camera/ColorMode");
    EXPECT_EQ(tree.keys(), (std::vector<std::string>{"Camera", "ExposureTime"}));

    TSettings copy = tree;
    copy.addDouble("Camera/Gain", 4.0, "");
    EXPECT_EQ(tree["Camera/Gain"].toDouble(), 4.0) << "a copy refers to the same node";
    TSettings leaf = tree["ExposureTime"];
    tree.addDouble("ExposureTime", 1.0, "");
    EXPECT_EQ(leaf.toDouble(), 1.0);

    // A tree far deeper than a file may hold is built and freed without one call per
    // level: recursion would overflow the stack here.
    std::string deepKey = "d";
    for (int level = 1; level < 200000; ++level) deepKey += "/d";
    TSettings deep("");
    EXPECT_EQ(deep.addDouble(deepKey, 1.0, "").toDouble(), 1.0);
    deep = TSettings("");
    EXPECT_TRUE(deep.keys().empty());
}

TEST(SettingsTreeTest, WrongKindsAndMissingKeysNameTheKey) {
    TSettings tree("");
    tree.addDouble("Camera/Gain", 1.0, "");
    tree.addString("Camera/TriggerType", "Hardware", "");
    const TSettings& constTree = tree;

    struct Case {
        std::function<void()> action;
        std::string expected;
    };
    const Case cases[] = {
        {[&] { constTree["Camera/Missing"]; }, "Setting 'Camera/Missing' not found"},
        {[&] { tree["Nope"]; }, "Setting 'Nope' not found"},
        {[&] { constTree["Camera/Gain"].toString(); }, "Setting 'Camera/Gain' is a number, not a word"},
        {[&] { constTree["Camera/TriggerType"].toDouble(); }, "Setting 'Camera/TriggerType' is a word, not a number"},
        {[&] { constTree["Camera"].toDouble(); }, "Setting 'Camera' is a group, not a number"},
        {[&] { tree["Camera/Gain"].asString(); }, "Setting 'Camera/Gain' is a number, not a word"},
        {[&] { tree.addDouble("Camera/Gain/Sub", 1.0, ""); }, "Setting 'Camera/Gain' is not a group"},
        {[&] { tree.addDouble("Camera//Gain", 1.0, ""); }, "Invalid settings key 'Camera//Gain'"},
        {[&] { tree.addString("Camera/$value", "a", ""); }, "Invalid settings key 'Camera/$value': '$value' is reserved"},
        {[&] { tree.addDouble("$range", 1.0, ""); }, "Invalid settings key '$range': '$range' is reserved"},
    };
    for (const auto& c : cases) EXPECT_NE(runtimeError(c.action).find(c.expected), std::string::npos) << c.expected;
}

TEST(SettingsTreeTest, RangesGiveEnumValues) {
    TGroupSettings tree("", "");
    tree.addString("Camera/BayerLayout", "BGGR", "");
    tree["Camera/BayerLayout"].asString().setRange({"GRBG", "RGGB", "BGGR", "GBRG"});
    EXPECT_EQ(tree["Camera/BayerLayout"].asString().getEnumValue(), 2);
    tree.addString("Camera/BayerLayout", "GRBG", "");
    EXPECT_EQ(tree["Camera/BayerLayout"].asString().getEnumValue(), 0);
    tree.addString("Camera/BayerLayout", "XXXX", "");
    EXPECT_NE(runtimeError([&] { tree["Camera/BayerLayout"].asString().getEnumValue(); }).find("not in its range"),
              std::string::npos);
}

// What is saved loads again, whatever the root is, and the text is laid out as
// nlohmann's own dump() lays it out.
TEST(SettingsTreeTest, JsonRoundTripKeepsPathsKindsRangesAndRoots) {
    TSettings tree("");
    tree.addDouble("ExposureTime", 8333.0, "");
    tree.addDouble("Camera/Gain", -1.5, "");
    tree.addString("Camera/ColorMode", "Raw \"quoted\"\n", "");
    tree.addString("Camera/BayerLayout", "BGGR", "");
    tree["Camera/BayerLayout"].asString().setRange({"GRBG", "RGGB", "BGGR", "GBRG"});
    tree.addString("Empty/Range", "x", "").asString().setRange({});
    TSettings deepest("");
    std::string deepKey = "g";
    for (std::size_t level = 1; level < TSettings::maxJsonDepth; ++level) deepKey += "/g";
    deepest.addDouble(deepKey, 1.0, "");
    TSettings word("");
    word.addString("w", "Color", "");
    TSettings ranged("");
    ranged.addString("w", "Gray", "").asString().setRange({"Gray", "Color"});

    const TSettings roots[] = {tree, deepest, TSettings(""), word["w"], ranged["w"], tree["ExposureTime"]};
    const std::string file = ::testing::TempDir() + "settings_round_trip.json";
    for (const TSettings& root : roots) {
        SCOPED_TRACE(root.toJson(-1).substr(0, 80));
        root.saveJson(file);
        const TSettings loaded = TSettings::loadJson(file);
        EXPECT_EQ(loaded.toJson(), root.toJson());
        for (int indent : {-1, 0, 2, 4})
            EXPECT_EQ(root.toJson(indent), nlohmann::ordered_json::parse(root.toJson()).dump(indent));
    }
    std::remove(file.c_str());

    TSettings loaded = TSettings::fromJson(tree.toJson());
    EXPECT_EQ(loaded["Camera/Gain"].toDouble(), -1.5);
    EXPECT_EQ(loaded["Camera/ColorMode"].toString(), "Raw \"quoted\"\n");
    EXPECT_EQ(loaded["Camera/BayerLayout"].asString().getEnumValue(), 2);
    EXPECT_EQ(loaded["Camera/BayerLayout"].path(), "Camera/BayerLayout");
    EXPECT_EQ(loaded.keys(), tree.keys());
    EXPECT_EQ(TSettings::fromJson(ranged.toJson())["w"].asString().getEnumValue(), 0);

    // What could not load again is not saved.
    TSettings notFinite("");
    notFinite.addDouble("Camera/Gain", std::nan(""), "");
    EXPECT_NE(runtimeError([&] { notFinite.toJson(); }).find("Setting 'Camera/Gain' holds nan"), std::string::npos);
    TSettings tooDeep("");
    tooDeep.addDouble(deepKey + "/g", 1.0, "");
    EXPECT_NE(runtimeError([&] { tooDeep.toJson(); }).find("nests groups deeper than 256 levels"), std::string::npos);
}

// Writes `bytes` into a FIFO until the reader goes away.
class EndlessFifo {
public:
    explicit EndlessFifo(std::string path) : path_(std::move(path)) {
        std::remove(path_.c_str());
        if (::mkfifo(path_.c_str(), 0600) != 0) throw std::system_error(errno, std::generic_category(), "mkfifo");
        writer_ = std::thread([this] {
            // The reader closing its end must end the writes (EPIPE), not the process.
            sigset_t pipe;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
            const int fd = ::open(path_.c_str(), O_WRONLY);
            const std::string chunk(1 << 16, '{');
            while (fd >= 0 && ::write(fd, chunk.data(), chunk.size()) > 0) {
            }
            if (fd >= 0) ::close(fd);
        });
    }
    ~EndlessFifo() {
        writer_.join();
        std::remove(path_.c_str());
    }

private:
    std::string path_;
    std::thread writer_;
};

std::string repeat(const std::string& part, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += part;
    return text;
}

long peakRssKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Every hostile or malformed file is refused with the file's name, the position and
// the reason, and costs no more memory than the size limit.
TEST(SettingsTreeTest, HostileAndMalformedFilesAreRefusedByNameAndPosition) {
    const std::string file = ::testing::TempDir() + "hostile_settings.json";
    const std::string limit = std::to_string(TSettings::maxJsonBytes);
    const std::string tooDeep = repeat("{\"a\":", 20000) + "1" + repeat("}", 20000);
    struct Case {
        std::string name;
        std::function<std::string()> load;  // makes the file and loads it; returns the origin
        std::string expected;
    };
    auto text = [&](std::string content) {
        return [&file, content] {
            std::ofstream(file, std::ios::binary) << content;
            TSettings::loadJson(file);
            return file;
        };
    };
    const Case cases[] = {
        {"deep nesting", text(tooDeep), "' at line 1, column 1281: groups nest deeper than 256 levels"},
        {"deep arrays", text(repeat("[", 100000)), "' at line 1, column 1: a settings file must hold a group, a number or a word, not array"},
        {"deep in a range", text("{\"w\": {\"$value\": \"a\", \"$range\": " + repeat("[", 100000) + "}}"),
         "' at line 1, column 34: '$range' of setting 'w' must be a list of words"},
        {"huge file",
         [&] {
             { std::ofstream(file, std::ios::binary) << "{}"; }
             std::filesystem::resize_file(file, TSettings::maxJsonBytes + 1);
             TSettings::loadJson(file);
             return file;
         },
         "': it holds " + std::to_string(TSettings::maxJsonBytes + 1) + " bytes, more than the " + limit},
        {"huge text",
         [&] {
             TSettings::fromJson(std::string(TSettings::maxJsonBytes + 1, ' '), "big.json");
             return std::string("big.json");
         },
         "': it holds " + std::to_string(TSettings::maxJsonBytes + 1) + " bytes"},
        {"endless device",
         [] {
             TSettings::loadJson("/dev/zero");
             return std::string("/dev/zero");
         },
         "': it holds more than " + limit + " bytes"},
        {"endless pipe",
         [&] {
             EndlessFifo fifo(file + ".fifo");
             TSettings::loadJson(file + ".fifo");
             return file + ".fifo";
         },
         "': it holds more than " + limit + " bytes"},
        {"overflow", text("{\n  \"Gain\": 1e400\n}"), "' at line 2, column 15: number 1e400 is beyond the range of a double"},
        {"negative overflow", text("{\"a\": {\"b\": -2e308}}"), "number -2e308 is beyond the range of a double"},
        {"overflowing root", text("1e999"), "' at line 1, column 5: number 1e999 is beyond the range of a double"},
        {"$value beside keys", text("{\"Camera\": {\"$value\": \"a\", \"Gain\": 1}}"),
         "key 'Gain' stands in setting 'Camera', a word with a range, which holds only '$value' and '$range'"},
        {"$range beside keys", text("{\"C\": {\"$range\": [], \"x\": 1}}"), "key 'x' stands in setting 'C', a word"},
        {"keys before $value", text("{\"Camera\": {\"Gain\": 1, \"$value\": \"a\"}}"),
         "reserved key '$value' stands beside other keys in setting 'Camera'"},
        {"$range alone", text("{\"Camera\": {\"$range\": [\"a\"]}}"), "setting 'Camera' has '$range' but no '$value'"},
        {"$value a number", text("{\"Camera\": {\"$value\": 1}}"), "'$value' of setting 'Camera' must be a word"},
        {"$value a group", text("{\"Camera\": {\"$value\": {}}}"), "'$value' of setting 'Camera' must be a word"},
        {"$range of numbers", text("{\"C\": {\"$value\": \"a\", \"$range\": [\"a\", 2]}}"),
         "'$range' of setting 'C' must be a list of words"},
        {"$range a word", text("{\"C\": {\"$range\": \"a\", \"$value\": \"a\"}}"),
         "'$range' of setting 'C' must be a list of words"},
        {"duplicate $value", text("{\"$value\": \"a\", \"$value\": \"b\"}"), "duplicate key '$value' in the root"},
        {"duplicate key", text("{\"Camera\": {\"Gain\": 1, \"Gain\": 2}}"), "duplicate key 'Gain' in setting 'Camera'"},
        {"syntax", text("{\n  \"Camera\": {\"Gain\": 1,,}\n}"),
         "' at line 2, column 24: syntax error while parsing object key - unexpected ','; expected string literal"},
        {"truncated", text("{\"Camera\": {"), "' at line 1, column 12: syntax error while parsing object key - unexpected end of input"},
        {"trailing text", text("{} {}"), "' at line 1, column 4: syntax error while parsing value - unexpected '{'; expected end of input"},
        {"array root", text("[1, 2]"), "a settings file must hold a group, a number or a word, not array"},
        {"boolean", text("{\"Camera\": {\"Gain\": true}}"), "setting 'Camera/Gain' must be a number, a word or a group, not boolean"},
        {"null", text("{\"Gain\": null}"), "setting 'Gain' must be a number, a word or a group, not null"},
        {"slash in key", text("{\"Camera\": {\"a/b\": 1}}"), "invalid settings key 'a/b' in setting 'Camera'"},
        {"empty key", text("{\"\": 1}"), "invalid settings key '' in the root"},
    };
    const long rssBefore = peakRssKb();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string origin;
        const std::string message = runtimeError([&] { origin = c.load(); });
        EXPECT_EQ(message.rfind("Failed to load settings file '", 0), 0u) << message;
        EXPECT_NE(message.find(c.expected), std::string::npos) << message;
    }
    // The endless sources stop at the limit: memory grows by a few times the limit (the
    // sanitizer builds keep shadow memory beside every byte), not until it runs out.
    EXPECT_LT(peakRssKb() - rssBefore, static_cast<long>(16 * TSettings::maxJsonBytes / 1024));
    std::remove(file.c_str());
    EXPECT_EQ(runtimeError([&] { TSettings::loadJson(file); }), "Failed to open settings file '" + file + "'");
}

// Positions are counted forward once, and again from the start for an earlier offset;
// every value's start is found, past escaped quotes and a number's read-ahead.
TEST(SettingsTreeTest, TheJsonReaderTellsWhereEveryValueStands) {
    const std::string text = "{\"a\\\"\": [1,\r\n  true],\n\"b\": {\"c\": \"x\\\\\"}, \"d\": -2e3}";
    Json::Lines lines(text);
    const struct {
        std::size_t offset, line, column;
    } positions[] = {{9, 1, 10}, {13, 2, 1}, {0, 1, 1}, {22, 3, 1}, {text.size() + 5, 3, text.size() - 22 + 1}};
    for (const auto& p : positions) {
        const Json::Position at = lines.at(p.offset);
        EXPECT_EQ(at.line, p.line) << p.offset;
        EXPECT_EQ(at.column, p.column) << p.offset;
    }
    const auto document = Json::parseDocument(text, 3);
    const std::pair<std::string, std::string> starts[] = {
        {"", "{\"a"}, {"/a\"", "[1,"}, {"/a\"/0", "1,"}, {"/a\"/1", "true]"}, {"/b/c", "\"x\\"}, {"/d", "-2e3}"}};
    for (const auto& [path, from] : starts) {
        ASSERT_EQ(document.starts.count(path), 1u) << path;
        EXPECT_EQ(text.substr(document.starts.at(path), from.size()), from) << path;
    }
    EXPECT_EQ(document.value["d"], -2000.0);
    try {
        Json::parseDocument("[[[[1]]]]", 3);
        ADD_FAILURE() << "nesting beyond the bound was taken";
    } catch (const Json::ParseFailure& failure) {
        EXPECT_EQ(failure.refusal.kind, Json::Refusal::Kind::TooDeep);
        EXPECT_EQ(failure.refusal.offset, 3u);
    }
}

}  // namespace
}  // namespace Tavri
