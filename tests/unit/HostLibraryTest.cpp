#include <gtest/gtest.h>

#include "TavriAPI/ImageSet.h"
#include "TavriCommon/Exceptions.h"
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

}  // namespace
}  // namespace Tavri
