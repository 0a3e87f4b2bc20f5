#include <gtest/gtest.h>

#include <thread>

#include "platform/Platform.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StartsWith;

TEST(RequestQueueTest, CountsOutsideThePoolAreRefusedBeforeAnySdkCall) {
    DriverFixture f;
    f.open();
    const int before = f.sdk.calls(Operation::sdkFlushWaitQueue) + f.sdk.calls(Operation::sdkEnqueueRequest) +
                       f.sdk.calls(Operation::sdkStartStream) + f.sdk.calls(Operation::sdkTakeCompletedRequest);
    for (int count : {-1, 121, 1000}) {
        EXPECT_NE(runtimeError([&] { f.camera->enqueue(count); }).find("the pool holds 0 to 120"), std::string::npos);
        EXPECT_NE(runtimeError([&] { f.camera->startStream(count); }).find("the pool holds 0 to 120"),
                  std::string::npos);
    }
    f.camera->dequeue(0);
    f.camera->dequeue(-5);
    f.camera->enqueue(0);
    EXPECT_EQ(f.sdk.calls(Operation::sdkFlushWaitQueue) + f.sdk.calls(Operation::sdkEnqueueRequest) + f.sdk.calls(Operation::sdkStartStream) +
                  f.sdk.calls(Operation::sdkTakeCompletedRequest),
              before);
}

TEST(RequestQueueTest, StartAndStopFlushDrainAndQueueFromThePoolsStart) {
    DriverFixture f;
    f.open();
    f.sdk.complete(0);
    {
        InSequence order;
        EXPECT_CALL(f.sdk, sdkFlushWaitQueue(_));
        EXPECT_CALL(f.sdk, sdkTakeCompletedRequest(_, _, _, _));  // nothing completed: one call
        EXPECT_CALL(f.sdk, sdkEnqueueRequest(_, f.camera->requests[0]));
        EXPECT_CALL(f.sdk, sdkEnqueueRequest(_, f.camera->requests[1]));
        EXPECT_CALL(f.sdk, sdkEnqueueRequest(_, f.camera->requests[2]));
        EXPECT_CALL(f.sdk, sdkStartStream(_, 8u));
        EXPECT_CALL(f.sdk, sdkStopStream(_));
        EXPECT_CALL(f.sdk, sdkFlushWaitQueue(_));
        EXPECT_CALL(f.sdk, sdkTakeCompletedRequest(_, _, _, _)).Times(2);  // stops after count takes
    }
    f.camera->startStream(3);
    EXPECT_EQ(f.sdk.complete(3), 3);
    f.camera->stopStream(2);
    EXPECT_EQ(f.sdk.completed(), 1u) << "a drain of 2 leaves the third image";
}

TEST(RequestQueueTest, StopFailureThrowsBeforeFlushAndZeroStreamOnlyFlushes) {
    DriverFixture f;
    f.open();
    f.sdk.fail(Operation::sdkStopStream, 6);
    const int flushes = f.sdk.calls(Operation::sdkFlushWaitQueue);
    EXPECT_EQ(runtimeError([&] { f.camera->stopStream(120); }), "Failed to stop camera stream.");
    EXPECT_EQ(f.sdk.calls(Operation::sdkFlushWaitQueue), flushes);

    StreamHandle stream = f.camera->streamHandle;
    f.camera->streamHandle = nullptr;
    f.camera->stopStream(1);
    f.camera->streamHandle = stream;
    EXPECT_EQ(f.sdk.calls(Operation::sdkStopStream), 1);
    EXPECT_EQ(f.sdk.calls(Operation::sdkFlushWaitQueue), flushes + 1);

    f.sdk.fail(Operation::sdkEnqueueRequest, 6, 4);
    EXPECT_EQ(runtimeError([&] { f.camera->startStream(10); }), "Failed to enqueue camera stream request #3");
    f.sdk.fail(Operation::sdkStartStream, 6);
    EXPECT_EQ(runtimeError([&] { f.camera->startStream(10); }), "Failed to start camera stream.");
}

// The camera completes an image as soon as the grab has queued its requests.
std::thread completeSoon(FakeCamera& sdk, std::uint8_t fill) {
    return std::thread([&sdk, fill] {
        for (int i = 0; i < 1000 && sdk.waiting() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        sdk.complete(1, fill);
    });
}

TEST(GrabTest, ImageTypeAndSizeFollowTheColourMode) {
    struct Case {
        ImageType mode;
        int type;
    };
    for (const Case& c : {Case{ImageType::Gray, CV_8UC1}, Case{ImageType::Color, CV_8UC3},
                          Case{ImageType::Raw, CV_8UC1}, Case{static_cast<ImageType>(9), CV_8UC1}}) {
        DriverFixture f;
        f.open();
        f.camera->setCameraTriggerSoftware();
        f.camera->setMode(c.mode);
        EXPECT_CALL(f.sdk, sdkExecuteSoftwareTrigger(_)).WillOnce([&](CameraHandle) {
            f.sdk.complete(1, 0x42);
            return 0u;
        });
        const cv::Mat image = f.camera->grab();
        EXPECT_EQ(image.type(), c.type);
        EXPECT_EQ(image.rows, 4);
        EXPECT_EQ(image.cols, 8);
        EXPECT_TRUE(image.isContinuous());
        EXPECT_EQ(cv::countNonZero(image.reshape(1) != 0x42), 0) << "every byte comes from the payload";
        EXPECT_EQ(f.sdk.calls(Operation::sdkStopStream), 1) << "a grab leaves the stream stopped";
        const std::vector<std::string> dropped = f.log->texts(3);
        // Gray and raw images are smaller than the colour-sized payload: the mismatch and
        // the surplus are reported.
        ASSERT_EQ(dropped.size(), c.type == CV_8UC1 ? 2u : 0u);
        if (c.type == CV_8UC1) {
            EXPECT_THAT(dropped[0], StartsWith("Completed image has 96 bytes where the colour mode needs 32"));
            EXPECT_THAT(dropped[1], StartsWith("Dropped 64 of 96 image bytes"));
        }
    }
}

TEST(GrabTest, HardwareTriggerSendsNothingAndFailuresCarryTheirTexts) {
    DriverFixture f;
    f.open();
    EXPECT_CALL(f.sdk, sdkExecuteSoftwareTrigger(_)).Times(0);
    std::thread camera = completeSoon(f.sdk, 0x11);
    const cv::Mat image = f.camera->grab();
    camera.join();
    EXPECT_EQ(image.at<std::uint8_t>(3, 7), 0x11);

    // The event fires but the SDK has nothing to hand out.
    EXPECT_CALL(f.sdk, sdkTakeCompletedRequest(_, _, _, _)).WillRepeatedly(Return(SdkResult::NoCompletedRequest));
    camera = completeSoon(f.sdk, 0x22);
    EXPECT_EQ(runtimeError([&] { f.camera->grab(); }), "Failed to grab image from camera.");
    camera.join();
}

// An image that completes while a stream stops is drained, but its signal stays on the
// event; the next stream must wait for its own images, not wake for the dropped one.
TEST(ContinuousGrabTest, ASignalLeftByTheLastStreamDoesNotWakeTheNext) {
    DriverFixture f;
    f.open();
    cv::Mat image(4, 8, CV_8UC3);
    f.camera->initGrabContinuous();
    f.sdk.complete(1, 0x01);
    f.camera->getNextImage(image, 100);
    f.camera->releaseGrabContinuous();
    platform::setEvent(f.camera->imageEvent);  // the late completion's signal

    f.camera->initGrabContinuous();
    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(image, 50); }), "Failed to wait for camera image completion");
    f.sdk.complete(1, 0x02);
    f.camera->getNextImage(image, 100);
    EXPECT_EQ(image.at<cv::Vec3b>(0, 0)[0], 0x02);
}

TEST(ContinuousGrabTest, ImagesCycleThroughThePoolAndBadTargetsAreRefused) {
    DriverFixture f;
    f.open();
    f.camera->initGrabContinuous();
    EXPECT_EQ(f.sdk.waiting(), 120u);
    cv::Mat image(4, 8, CV_8UC1, cv::Scalar(0));
    for (int i = 1; i <= 300; ++i) {
        f.sdk.complete(1, static_cast<std::uint8_t>(i));
        f.camera->getNextImage(image, 100);
        ASSERT_EQ(image.at<std::uint8_t>(0, 0), static_cast<std::uint8_t>(i));
        ASSERT_EQ(f.sdk.waiting(), 120u) << "each taken request goes back at once";
    }

    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(image, 10); }), "Failed to wait for camera image completion");
    cv::Mat empty;
    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(empty, 10); }), "Cannot grab into an image without data");
    cv::Mat big(8, 16, CV_8UC1);
    cv::Mat view = big(cv::Rect(0, 0, 8, 4));
    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(view, 10); }),
              "Cannot grab into an image whose data are not continuous");

    // A payload of zero bytes leaves the image as it was; a payload longer than the
    // image stops at the image's end.
    image.setTo(7);
    f.sdk.complete(1, 0x99, 0);
    f.camera->getNextImage(image, 100);
    EXPECT_EQ(image.at<std::uint8_t>(0, 0), 7);

    cv::Mat guarded(5, 8, CV_8UC1, cv::Scalar(1));  // one guard row after the image
    cv::Mat target = guarded.rowRange(0, 4);
    f.sdk.complete(1, 0xEE, f.sdk.payload());
    f.log->clear();
    f.camera->getNextImage(target, 100);
    EXPECT_EQ(target.at<std::uint8_t>(3, 7), 0xEE);
    EXPECT_EQ(guarded.at<std::uint8_t>(4, 0), 1) << "nothing written past the image";
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"Dropped 64 of 96 image bytes: only 32 fit the destination"});
    f.camera->releaseGrabContinuous();
}

TEST(ContinuousGrabTest, SoftwareTriggerAndRequeueFailures) {
    DriverFixture f;
    f.open();
    f.camera->setCameraTriggerSoftware();
    f.camera->initGrabContinuous();
    cv::Mat image(4, 8, CV_8UC1);
    f.sdk.fail(Operation::sdkExecuteSoftwareTrigger, 3);
    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(image, 10); }),
              "Failed to send software trigger signal to camera");
    f.sdk.heal(Operation::sdkExecuteSoftwareTrigger);
    f.sdk.complete(1, 0x31);
    f.sdk.fail(Operation::sdkEnqueueRequest, 3);
    EXPECT_EQ(runtimeError([&] { f.camera->getNextImage(image, 10); }),
              "Failed to re-enqueue image stream request on camera.");
    EXPECT_EQ(image.at<std::uint8_t>(0, 0), 0x31) << "the image was copied before the re-queue";
}

TEST(ContinuousGrabTest, InfiniteTimeoutWaitsForTheImage) {
    DriverFixture f;
    f.open();
    f.camera->initGrabContinuous();
    cv::Mat image(4, 8, CV_8UC1);
    std::thread camera([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        f.sdk.complete(1, 0x66);
    });
    f.camera->getNextImage(image, -1);
    camera.join();
    EXPECT_EQ(image.at<std::uint8_t>(2, 2), 0x66);
}

}  // namespace
}  // namespace Tavri::testing
