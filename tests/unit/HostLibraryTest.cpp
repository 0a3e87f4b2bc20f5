#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <thread>

#include "TavriAPI/ImageSet.h"
#include "TavriAPI/ImageSetMemory.h"
#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Logger.h"
#include "TavriCommon/StdAbortThread.h"

namespace Tavri {
namespace {

TEST(ImageSetTest, HeadersShareOneBlockAtFixedOffsets) {
    struct Case {
        ImageType mode;
        int expectedBytes;
        int expectedType;
    };
    for (const Case& c : {Case{ImageType::Color, 24, CV_8UC3}, Case{ImageType::Gray, 8, CV_8UC1},
                          Case{ImageType::Raw, 8, CV_8UC1}, Case{static_cast<ImageType>(7), 8, CV_8UC1}}) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        ImageSet set(3, 4, 2, c.mode);
        EXPECT_EQ(set.bytesPerImage, c.expectedBytes);
        EXPECT_EQ(set.mode, c.mode);
        ASSERT_EQ(set.images.size(), 3u);
        for (int i = 0; i < 3; ++i) {
            const cv::Mat& image = set.images[i];
            EXPECT_EQ(image.rows, 2);
            EXPECT_EQ(image.cols, 4);
            EXPECT_EQ(image.type(), c.expectedType);
            EXPECT_EQ(image.data, set.buffer.get() + i * c.expectedBytes);
            EXPECT_EQ(image.step[0], static_cast<size_t>(4 * (c.expectedType == CV_8UC3 ? 3 : 1)));
            EXPECT_EQ(image.u, nullptr) << "headers must not own the pixels";
        }
        // The last byte of the block belongs to the last image: writing it is in bounds.
        set.images[2].data[c.expectedBytes - 1] = 0xAB;
        EXPECT_EQ(set.buffer[3 * c.expectedBytes - 1], 0xAB);
    }
}

TEST(ImageSetTest, ABlockComesBackOnlyOnceItsLastCopyLetsGo) {
    ImageSet empty(0, 640, 480, ImageType::Gray);
    EXPECT_TRUE(empty.images.empty());

    auto original = std::make_unique<ImageSet>(2, 3, 3, ImageType::Gray);
    std::uint8_t* const block = original->buffer.get();
    original->images[1].at<uint8_t>(2, 2) = 42;
    auto copy = std::make_unique<ImageSet>(*original);
    original.reset();  // the copy keeps the block
    ImageSet whileHeld(2, 3, 3, ImageType::Gray);
    EXPECT_NE(whileHeld.buffer.get(), block) << "a block a copy still holds was handed out again";
    whileHeld.images[1].at<uint8_t>(2, 2) = 7;
    EXPECT_EQ(copy->images[1].at<uint8_t>(2, 2), 42);
    EXPECT_EQ(copy->images[1].data, copy->buffer.get() + 9);

    copy.reset();
    const ImageSet next(2, 3, 3, ImageType::Gray);
    EXPECT_EQ(next.buffer.get(), block) << "the next set of the size takes the block let go";
}

std::size_t residentBytes() {
    unsigned long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%lu %lu", &pages, &resident) != 2) resident = 0;
        std::fclose(statm);
    }
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// Two hosts take and drop sets of changing sizes, some beyond the byte limit, on their
// own threads: no block under a held set is handed out again, the idle blocks stay
// within the limits, and every block goes back to the system in the end.
TEST(ImageSetTest, SetsOfChangingSizesKeepThePoolBounded) {
    constexpr std::size_t MiB = 1 << 20;
    const ImageSetMemoryLimits saved = imageSetMemoryLimits();
    const ImageSetMemoryLimits limits{3, 4 * MiB};
    setImageSetMemoryLimits(limits);
    releaseIdleImageSetMemory();
    const ImageSetMemoryUse before = imageSetMemoryUse();
    const std::size_t residentBefore = residentBytes();

    const auto host = [&](int seed) {
        // Sets of 1, 3, 2, 5 (beyond the limit) and 1.5 MiB.
        const int rows[] = {1024, 3072, 2048, 5120, 1536};
        std::deque<std::pair<ImageSet, std::uint64_t>> held;
        const auto tagOf = [](const ImageSet& set) {
            std::uint64_t tag = 0;
            std::memcpy(&tag, set.buffer.get() + set.images.size() * set.bytesPerImage - sizeof tag, sizeof tag);
            return tag;
        };
        for (std::uint64_t step = 0; step < 80; ++step) {
            ImageSet set(2, 1024, rows[(step * 3 + seed) % 5] / 2, ImageType::Gray);
            const std::uint64_t tag = step * 2 + seed;
            std::memcpy(set.images.back().data + set.bytesPerImage - sizeof tag, &tag, sizeof tag);
            for (const auto& [other, otherTag] : held) ASSERT_NE(other.buffer.get(), set.buffer.get());
            held.emplace_back(std::move(set), tag);
            // Keep one to three sets, dropping the oldest first.
            while (held.size() > 1 + (step + seed) % 3) {
                ASSERT_EQ(tagOf(held.front().first), held.front().second) << "a held set was overwritten";
                held.pop_front();
            }
            const ImageSetMemoryUse use = imageSetMemoryUse();
            ASSERT_LE(use.idleBlocks, limits.idleBlocks);
            ASSERT_LE(use.idleBytes, limits.idleBytes);
        }
        for (const auto& [set, tag] : held) ASSERT_EQ(tagOf(set), tag) << "a held set was overwritten";
    };
    std::thread other(host, 1);
    host(0);
    other.join();

    const ImageSetMemoryUse after = imageSetMemoryUse();
    EXPECT_EQ(after.heldBlocks, before.heldBlocks);
    EXPECT_EQ(after.heldBytes, before.heldBytes);
    releaseIdleImageSetMemory();
    EXPECT_EQ(imageSetMemoryUse().idleBytes, 0u);
    // 400 MiB went through the pool: a leak would keep far more resident than the
    // allocator's noise.
    EXPECT_LT(residentBytes(), residentBefore + 64 * MiB);
    setImageSetMemoryLimits(saved);
}

TEST(ExceptionTest, ArgumentInvalidTexts) {
    struct Case {
        std::string message, name, value, expected;
    };
    const Case cases[] = {
        {"Invalid color mode", "camSettings[SettingsOld::Camera::ColorMode]", "Blue",
         "Invalid color mode. Invalid parameter: camSettings[SettingsOld::Camera::ColorMode] = \"Blue\""},
        {"Already ends.", "x", "1", "Already ends. Invalid parameter: x = \"1\""},
        {"", "x", "1", "No error details. Invalid parameter: x = \"1\""},
        {"Bad", "", "", "Bad. Invalid parameter: N/A = \"\""},
    };
    for (const auto& c : cases) {
        const ArgumentInvalidException error(c.message, c.name, c.value);
        EXPECT_EQ(std::string(error.what()), c.expected);
        // Copies carry the text; the class is caught as the host's base classes.
        const ArgumentInvalidException copy(error);
        EXPECT_STREQ(copy.what(), error.what());
    }
    try {
        throw RuntimeException("boom");
    } catch (const Exception& error) {
        EXPECT_STREQ(error.what(), "boom");
    }
}

TEST(SerializationTest, RendersExceptionWithItsType) {
    std::ostringstream out;
    using Serialization::operator<<;
    out << static_cast<const std::exception&>(RuntimeException("lost"));
    EXPECT_EQ(out.str(), "Tavri::RuntimeException: lost");
}

TEST(StdAbortThreadDeathTest, EscapingExceptionIsLoggedAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ::setenv("TAVRI_LOG_LEVEL", "1", 1);
    EXPECT_DEATH(
        {
            auto thread = StdAbortThread([] { throw RuntimeException("worker broke"); });
            thread.join();
        },
        "Thread aborted with exception: Tavri::RuntimeException: worker broke");
}

TEST(StdAbortThreadTest, BodyRunsToCompletion) {
    int ran = 0;
    StdAbortThread([&ran] { ran = 1; }).join();
    EXPECT_EQ(ran, 1);
}

TEST(LoggerTest, LevelsParseFromDigitsAndNames) {
    const std::pair<const char*, std::optional<int>> cases[] = {
        {"0", 0},        {"3", 3},          {"4", 4},        {"debug", 0},   {"INFO", 1},    {"Notice", 2},
        {"warning", 3},  {"warn", 3},       {"critical", 4}, {"fatal", 4},   {"5", {}},      {"-1", {}},
        {"03", {}},      {"3 ", {}},        {"abc", {}},     {"", {}},       {"1e0", {}},    {"informational", {}},
    };
    for (const auto& [text, level] : cases) EXPECT_EQ(Log::parseLogLevel(text), level) << "'" << text << "'";
}

// Passes every record on to GlobalLogger::get(), as a host's tap in front of the
// default logger does.
class ForwardingLogger : public Log::LoggerInterface {
public:
    void log(int level, const char* file, int line, const std::string& text) override {
        Log::GlobalLogger::get().log(level, file, line, "forwarded: " + text);
    }
};

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// The default logger, in a fresh process per case: TAVRI_LOG_LEVEL picks the threshold
// and anything else is reported once; lines name the file relative to the project.
TEST(LoggerDeathTest, DefaultLoggerThresholdWarningAndRelativeFiles) {
    using ::testing::AllOf;
    using ::testing::HasSubstr;
    using ::testing::Not;
    using ::testing::ResultOf;
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string here = " (tests/unit/HostLibraryTest.cpp:";
    struct Case {
        const char* level;  // null: unset
        bool forward;       // through a logger that hands records back to get()
        std::vector<int> shown;
        int warnings;
    };
    const Case cases[] = {
        {nullptr, false, {3, 4}, 0}, {"abc", false, {3, 4}, 1}, {"1", false, {1, 3, 4}, 0},
        {"CRITICAL", false, {4}, 0}, {"9", false, {3, 4}, 1},    {"warning", true, {3, 4}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level ? c.level : "(unset)");
        auto matcher = ::testing::Matcher<const std::string&>(
            ResultOf([](const std::string& err) { return occurrences(err, "is not a log level"); }, c.warnings));
        for (int level : {1, 3, 4}) {
            const std::string line = (c.forward ? "forwarded: " : "") + ("level " + std::to_string(level)) + here;
            const bool shown = std::find(c.shown.begin(), c.shown.end(), level) != c.shown.end();
            matcher = AllOf(matcher, ResultOf([line](const std::string& err) { return occurrences(err, line); },
                                              shown ? 1 : 0));
        }
        EXPECT_EXIT(
            {
                if (c.level)
                    ::setenv("TAVRI_LOG_LEVEL", c.level, 1);
                else
                    ::unsetenv("TAVRI_LOG_LEVEL");
                if (c.forward) Log::GlobalLogger::install(std::make_shared<ForwardingLogger>());
                for (int level : {1, 3, 4}) TAVRI_LOG(level, "level " + std::to_string(level));
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), matcher);
    }
}

}  // namespace
}  // namespace Tavri
