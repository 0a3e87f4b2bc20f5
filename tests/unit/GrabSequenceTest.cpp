#include <gtest/gtest.h>

#include <algorithm>
#include <system_error>
#include <thread>

#include "platform/Platform.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;

// How the simulated camera delivers the n images of a sequence.
enum class Delivery { Steady, Burst, GapAfterThree, FailingTakeAtFive };

struct SequenceCase {
    int count;
    ImageType mode;
    Delivery delivery;
    int intactImages;  // images that must hold their own pattern; the rest read zero
    std::vector<std::string> failures;  // level 3, in order
};

std::uint8_t patternOf(int image) { return static_cast<std::uint8_t>(image * 7 + 1); }

TEST(GrabSequenceTest, WorkerCollectsExternallyTriggeredImages) {
    const SequenceCase cases[] = {
        {0, ImageType::Color, Delivery::Steady, 0, {}},
        {1, ImageType::Color, Delivery::Steady, 1, {}},
        {12, ImageType::Color, Delivery::Steady, 12, {}},
        {120, ImageType::Color, Delivery::Steady, 120, {}},
        {12, ImageType::Gray, Delivery::Steady, 12, {}},
        {12, ImageType::Color, Delivery::Burst, 12, {}},
        {120, ImageType::Raw, Delivery::Burst, 120, {}},
        {12, ImageType::Color, Delivery::GapAfterThree, 3,
         {"An unknown error occured",
          "Grab sequence image 3: ended early after 3 of 12 images: Failed to wait for camera image completion"}},
        {12, ImageType::Color, Delivery::FailingTakeAtFive, 5,
         {"An unknown error occured", "Grab sequence image 5: failed frame: status 9"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("n=" + std::to_string(c.count) + " delivery=" + std::to_string(static_cast<int>(c.delivery)));
        DriverFixture f;
        f.open();
        f.camera->setMode(c.mode);
        const std::int64_t imageBytes = 8 * 4 * (c.mode == ImageType::Color ? 3 : 1);
        f.log->clear();
        if (c.delivery == Delivery::FailingTakeAtFive)
            f.sdk.fail(Operation::sdkTakeCompletedRequest, 9, f.sdk.calls(Operation::sdkTakeCompletedRequest) + 2 + 5);
        if (c.delivery == Delivery::Burst) {
            // Every completion lands before the worker first waits: the merged signal
            // and the re-signal after each take must still yield every image.
            EXPECT_CALL(f.sdk, sdkStartStream(_, 8u)).WillOnce([&](StreamHandle, std::uint32_t) {
                for (int k = 0; k < c.count; ++k) f.sdk.complete(1, patternOf(k), imageBytes);
                return 0u;
            });
        }

        {
            // The sequence's set takes the block of an earlier set of its size, let go
            // just now: images it never reaches must not show that set's pixels.
            ImageSet earlier(c.count, 4, 8, c.mode);
            std::fill_n(earlier.buffer.get(), c.count * imageBytes, std::uint8_t{0xEE});
        }
        f.camera->startGrabSequenceAsync(c.count);
        EXPECT_EQ(f.camera->sequenceLength, c.count);
        std::thread camera([&] {
            if (c.delivery == Delivery::Burst) return;
            for (int k = 0; k < c.count; ++k) {
                if (c.delivery == Delivery::GapAfterThree && k == 3)
                    std::this_thread::sleep_for(std::chrono::milliseconds(700));
                f.sdk.complete(1, patternOf(k), imageBytes);
                std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
        });
        const std::shared_ptr<ImageSet> set = f.camera->finishGrabSequenceAsync();
        camera.join();

        ASSERT_TRUE(set);
        EXPECT_EQ(set.get(), f.camera->currentImageSet.get()) << "the host and the camera share one set";
        EXPECT_EQ(f.camera->sequenceLength, 0);
        EXPECT_FALSE(f.camera->sequenceThread.joinable());
        ASSERT_EQ(set->images.size(), static_cast<std::size_t>(c.count));
        EXPECT_EQ(set->bytesPerImage, imageBytes);
        for (int k = 0; k < c.intactImages; ++k) {
            const cv::Mat& image = set->images[k];
            ASSERT_EQ(image.type(), c.mode == ImageType::Color ? CV_8UC3 : CV_8UC1);
            ASSERT_EQ(cv::countNonZero(image.reshape(1) != patternOf(k)), 0) << "image " << k;
        }
        for (int k = c.intactImages; k < c.count; ++k)
            ASSERT_EQ(cv::countNonZero(set->images[k].reshape(1)), 0) << "image " << k << " not reached";
        const auto level1 = f.log->texts(1);
        EXPECT_EQ(level1.front(), "grabSequence worker thread started");
        EXPECT_EQ(level1.back(), "grabSequence worker thread ended");
        EXPECT_EQ(f.log->texts(3), c.failures);
        // Without frame information from the SDK the records carry host times alone,
        // and a set that arrived whole is judged whole.
        const auto& records = f.camera->sequenceRecords();
        EXPECT_EQ(records.images.size(), static_cast<std::size_t>(c.intactImages + (c.failures.empty() ? 0 : 1)) -
                                             (c.delivery == Delivery::GapAfterThree ? 1 : 0));
        EXPECT_EQ(f.camera->sequenceVerdict().whole(), c.failures.empty());
        EXPECT_EQ(f.sdk.calls(Operation::sdkExecuteSoftwareTrigger), 0) << "a sequence sends no trigger";
        EXPECT_EQ(f.sdk.calls(Operation::sdkEnqueueRequest), c.count) << "and queues no request again";
        ::testing::Mock::VerifyAndClearExpectations(&f.sdk);
    }
}

TEST(GrabSequenceTest, StartsAreRefusedWhileAWorkerIsHeldOrTheCountIsOutsideThePool) {
    DriverFixture f;
    f.open();
    f.camera->setMode(ImageType::Color);
    const auto before = f.camera->currentImageSet;
    for (int count : {-1, 121}) {
        EXPECT_NE(runtimeError([&] { f.camera->startGrabSequenceAsync(count); }).find("the pool holds 0 to 120"),
                  std::string::npos);
        EXPECT_EQ(f.camera->sequenceLength, 0);
        EXPECT_EQ(f.camera->currentImageSet, before);
    }
    EXPECT_EQ(f.sdk.calls(Operation::sdkStartStream), 0);

    f.camera->startGrabSequenceAsync(2);
    const auto first = f.camera->currentImageSet;
    EXPECT_EQ(runtimeError([&] { f.camera->startGrabSequenceAsync(3); }), "Grab sequence already running");
    EXPECT_EQ(f.camera->sequenceLength, 2);
    EXPECT_EQ(f.camera->currentImageSet, first);
    f.sdk.complete(2, 0x10);
    const auto firstSet = f.camera->finishGrabSequenceAsync();

    // A new sequence replaces the camera's set; the host's earlier set stays intact.
    f.camera->startGrabSequenceAsync(1);
    f.sdk.complete(1, 0x20);
    const auto secondSet = f.camera->finishGrabSequenceAsync();
    EXPECT_NE(firstSet, secondSet);
    EXPECT_EQ(firstSet->images[1].at<cv::Vec3b>(0, 0)[0], 0x10);
    EXPECT_EQ(secondSet->images[0].at<cv::Vec3b>(0, 0)[0], 0x20);

    EXPECT_THROW(f.camera->finishGrabSequenceAsync(), std::system_error) << "a finish needs a started worker";
}

TEST(GrabSequenceTest, DestroyingTheCameraWaitsForItsWorker) {
    DriverFixture f;
    f.open();
    f.camera->startGrabSequenceAsync(3);
    f.sdk.complete(1, 0x01, 8 * 4);
    // The release belongs to the host; here the handles are kept to give them back
    // once the object, and with it the worker, is gone.
    EventHandle event = f.camera->imageEvent;
    std::uint8_t* block = f.camera->requestBuffer;
    f.camera.reset();  // returns once the worker has timed out on the second image
    const auto lines = f.log->texts();
    EXPECT_EQ(lines.back(), "grabSequence worker thread ended");
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"An unknown error occured"});
    platform::closeEvent(event);
    platform::freeBlock(block);
}

TEST(GrabSequenceTest, StartFailuresReachTheHostWithoutAWorker) {
    DriverFixture f;
    f.open();
    f.sdk.fail(Operation::sdkGetHeight, 4);
    EXPECT_EQ(runtimeError([&] { f.camera->startGrabSequenceAsync(5); }), "Could not get number of camera rows.");
    EXPECT_FALSE(f.camera->sequenceThread.joinable());
    f.sdk.heal(Operation::sdkGetHeight);
    f.sdk.fail(Operation::sdkStartStream, 4);
    EXPECT_EQ(runtimeError([&] { f.camera->startGrabSequenceAsync(5); }), "Failed to start camera stream.");
    EXPECT_FALSE(f.camera->sequenceThread.joinable());
    EXPECT_EQ(f.camera->currentImageSet->images.size(), 5u);

    f.sdk.heal(Operation::sdkStartStream);
    f.camera->startGrabSequenceAsync(1);
    f.sdk.complete(1);
    f.sdk.fail(Operation::sdkStopStream, 4);
    // Joined first; the failed stop keeps n so the host can see what was running.
    EXPECT_EQ(runtimeError([&] { f.camera->finishGrabSequenceAsync(); }), "Failed to stop camera stream.");
    EXPECT_FALSE(f.camera->sequenceThread.joinable());
    EXPECT_EQ(f.camera->sequenceLength, 1);
}

}  // namespace
}  // namespace Tavri::testing
