#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "TavriAPI/ImageSet.h"
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

TEST(ImageSetTest, CopiesShareTheBlockAndEmptySetHasNoImages) {
    ImageSet empty(0, 640, 480, ImageType::Gray);
    EXPECT_TRUE(empty.images.empty());

    auto original = std::make_unique<ImageSet>(2, 3, 3, ImageType::Gray);
    original->images[1].at<uint8_t>(2, 2) = 42;
    ImageSet copy = *original;
    original.reset();  // the copy keeps the block alive
    EXPECT_EQ(copy.images[1].at<uint8_t>(2, 2), 42);
    EXPECT_EQ(copy.images[1].data, copy.buffer.get() + 9);
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
