#include <gtest/gtest.h>

#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::AnyNumber;
using ::testing::DoAll;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::SetArgPointee;

TEST(OpenTest, OpensInTheFixedOrderIntoTheStartingConfiguration) {
    DriverFixture f({{"V", "M", "OTHER"}, {"V", "M", "CAM1"}});
    FakeCamera& sdk = f.sdk;
    const std::uint32_t payload = sdk.payload();
    {
        InSequence order;
        EXPECT_CALL(sdk, sdkGetCameraCount(_));
        EXPECT_CALL(sdk, sdkGetCameraCount(_));  // the serial search counts again
        EXPECT_CALL(sdk, sdkGetCameraInfo(nullptr, 0u, _));
        EXPECT_CALL(sdk, sdkGetCameraInfo(nullptr, 1u, _));
        EXPECT_CALL(sdk, sdkOpenCamera(1u, _, nullptr, true, nullptr, 1u));
        EXPECT_CALL(sdk, sdkOpenStream(_, ::testing::NotNull(), _, _, 0u));
        EXPECT_CALL(sdk, sdkSetTriggerMode(_, true));
        EXPECT_CALL(sdk, sdkSetTriggerSource(_, 0u));
        EXPECT_CALL(sdk, sdkSetTriggerActivation(_, 0u));
        EXPECT_CALL(sdk, sdkSetTriggerSequence(_, 0u));
        EXPECT_CALL(sdk, sdkGetSensorWidth(_, _));
        EXPECT_CALL(sdk, sdkSetWidth(_, 8u));
        EXPECT_CALL(sdk, sdkGetSensorHeight(_, _));
        EXPECT_CALL(sdk, sdkSetHeight(_, 4u));
        EXPECT_CALL(sdk, sdkCreateRequest(_, _, payload, _)).Times(120);
        EXPECT_CALL(sdk, sdkSetBalanceRatio(_, 1u, 1.875));
        EXPECT_CALL(sdk, sdkSetBalanceRatio(_, 2u, 1.281));
        EXPECT_CALL(sdk, sdkSetExposureTime(_, 8333.0));
        EXPECT_CALL(sdk, sdkSetPixelFormat(_, PixelFormat::BayerBG8));
    }
    EXPECT_TRUE(f.camera->initializeCamera("CAM1"));

    DriverProbe& camera = *f.camera;
    EXPECT_TRUE(camera.isInitialized);
    EXPECT_FALSE(camera.softwareTrigger);
    EXPECT_EQ(camera.getMode(), ImageType::Raw);
    EXPECT_EQ(camera.payloadSize, payload);
    ASSERT_NE(camera.requestBuffer, nullptr);
    EXPECT_EQ(sdk.liveRequests(), 120);
    for (RequestHandle request : camera.requests) EXPECT_NE(request, nullptr);
    EXPECT_EQ(f.log->texts(), (std::vector<std::string>{
                                  "Initializing camera with index 1 and serial number CAM1",
                                  "Setting trigger type to hardware",
                                  "Exposure time set to 8333",
                                  "Color mode set to 2",
                              }));
}

TEST(OpenTest, RequestsCoverTheBlockSliceBySlice) {
    DriverFixture f;
    std::vector<std::uint8_t*> buffers;
    EXPECT_CALL(f.sdk, sdkCreateRequest(_, _, _, _))
        .Times(120)
        .WillRepeatedly([&](StreamHandle, void* buffer, std::uint32_t, RequestHandle* request) {
            buffers.push_back(static_cast<std::uint8_t*>(buffer));
            *request = buffer;
            return 0u;
        });
    f.open(nullptr);
    ASSERT_EQ(buffers.size(), 120u);
    for (std::size_t i = 0; i < buffers.size(); ++i) EXPECT_EQ(buffers[i], f.camera->requestBuffer + i * f.sdk.payload());
    // The last slice ends exactly at the block's end, and every byte of it is writable.
    buffers.back()[f.sdk.payload() - 1] = 1;
    EXPECT_CALL(f.sdk, sdkReleaseRequest(_, _)).Times(120).WillRepeatedly(Return(0));
    f.camera->releaseCamera();
}

TEST(OpenTest, NullSerialOpensIndexZeroWithoutSearching) {
    DriverFixture f({{"V", "M", "A"}, {"V", "M", "B"}});
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(_, _, _)).Times(0);
    EXPECT_CALL(f.sdk, sdkOpenCamera(0u, _, _, _, _, _));
    f.camera->initializeCamera(nullptr);
    for (const auto& line : f.log->texts()) EXPECT_EQ(line.find("Initializing camera with index"), std::string::npos);

    // A second open of an open camera does nothing but say so.
    ::testing::Mock::VerifyAndClearExpectations(&f.sdk);
    f.log->clear();
    EXPECT_CALL(f.sdk, sdkGetCameraCount(_)).Times(0);
    EXPECT_CALL(f.sdk, sdkOpenCamera(_, _, _, _, _, _)).Times(0);
    EXPECT_TRUE(f.camera->initializeCamera("whatever"));
    EXPECT_EQ(f.log->texts(3), std::vector<std::string>{"Camera already initialized"});
}

// Each failing step of the open: its message, what stays held, then a retry that
// succeeds and a release that gives back everything.
TEST(OpenTest, FailedStepsLeaveNothingBehindAfterRetryAndRelease) {
    struct Case {
        Operation operation;
        Result code;
        int onCall;
        std::string message;
        int camerasHeld, streamsHeld, requestsHeld;
        bool blockHeld;
    };
    const Case cases[] = {
        {Operation::sdkGetCameraCount, 5, 1, "Failed to get number of cameras", 0, 0, 0, false},
        {Operation::sdkGetCameraInfo, 5, 1, "Failed to locate a camera with serial number CAM0", 0, 0, 0, false},
        {Operation::sdkOpenCamera, 5, 1, "Failed to open camera.", 0, 0, 0, false},
        {Operation::sdkOpenStream, 5, 1, "Failed to open camera stream", 1, 0, 0, false},
        {Operation::sdkCreateRequest, 5, 1, "Failed to create camera stream request #0", 1, 1, 0, true},
        {Operation::sdkCreateRequest, 5, 58, "Failed to create camera stream request #57", 1, 1, 57, true},
        {Operation::sdkSetExposureTime, 5, 1, "Failed to set camera exposure", 1, 1, 120, true},
    };
    for (const auto& c : cases)
    for (const bool dropObject : {false, true}) {
        SCOPED_TRACE(c.message + (dropObject ? ", object deleted" : ", object retried"));
        DriverFixture f;
        f.sdk.fail(c.operation, c.code, c.onCall);
        EXPECT_EQ(runtimeError([&] { f.camera->initializeCamera("CAM0"); }), c.message);
        EXPECT_FALSE(f.camera->isInitialized);
        EXPECT_EQ(f.sdk.openCameras(), c.camerasHeld);
        EXPECT_EQ(f.sdk.openStreams(), c.streamsHeld);
        EXPECT_EQ(f.sdk.liveRequests(), c.requestsHeld);
        EXPECT_EQ(f.camera->requestBuffer != nullptr, c.blockHeld);

        if (dropObject) {
            // A host that gives up on the object must find the camera free again.
            std::uint8_t* heldBlock = f.camera->requestBuffer;
            f.camera.reset();
            EXPECT_EQ(f.sdk.openCameras(), 0);
            EXPECT_EQ(f.sdk.openStreams(), 0);
            EXPECT_EQ(f.sdk.liveRequests(), 0);
            if (heldBlock) {
                EXPECT_FALSE(isMapped(heldBlock));
            }
            continue;
        }

        // Release of a camera that never opened gives nothing back ...
        f.camera->releaseCamera();
        EXPECT_EQ(f.sdk.openCameras(), c.camerasHeld);
        // ... but the next open first returns what the failed one held.
        std::uint8_t* oldBlock = f.camera->requestBuffer;
        ASSERT_TRUE(f.camera->initializeCamera("CAM0"));
        EXPECT_EQ(f.sdk.openCameras(), 1);
        EXPECT_EQ(f.sdk.openStreams(), 1);
        EXPECT_EQ(f.sdk.liveRequests(), 120);
        if (oldBlock && oldBlock != f.camera->requestBuffer) {
            EXPECT_FALSE(isMapped(oldBlock));
        }

        std::uint8_t* block = f.camera->requestBuffer;
        f.camera->releaseCamera();
        EXPECT_EQ(f.sdk.openCameras(), 0);
        EXPECT_EQ(f.sdk.openStreams(), 0);
        EXPECT_EQ(f.sdk.liveRequests(), 0);
        EXPECT_FALSE(isMapped(block));
        EXPECT_EQ(f.camera->requestBuffer, nullptr);
        EXPECT_EQ(f.camera->cameraHandle, nullptr);
        EXPECT_EQ(f.camera->streamHandle, nullptr);
        EXPECT_EQ(f.camera->imageEvent, nullptr);
    }
}

TEST(OpenTest, NoCameraAndZeroPayloadAreRefused) {
    DriverFixture none(std::vector<FakeCameraInfo>{});
    EXPECT_EQ(runtimeError([&] { none.camera->initializeCamera(nullptr); }), "No cameras found");
    EXPECT_EQ(runtimeError([&] { none.camera->initializeCamera("X"); }), "No cameras found");

    DriverFixture f;
    EXPECT_CALL(f.sdk, sdkOpenStream(_, _, _, _, _))
        .WillOnce(DoAll(SetArgPointee<2>(0u), SetArgPointee<3>(reinterpret_cast<void*>(0x99)), Return(0u)));
    EXPECT_EQ(runtimeError([&] { f.camera->initializeCamera(nullptr); }), "Failed to allocate camera payload buffer");
    // A payload whose 120-fold does not fit 32 bits would put requests outside the block.
    DriverFixture huge;
    EXPECT_CALL(huge.sdk, sdkOpenStream(_, _, _, _, _))
        .WillOnce(DoAll(SetArgPointee<2>(40'000'000u), SetArgPointee<3>(reinterpret_cast<void*>(0x99)), Return(0u)));
    EXPECT_EQ(runtimeError([&] { huge.camera->initializeCamera(nullptr); }), "Failed to allocate camera payload buffer");
    EXPECT_CALL(huge.sdk, sdkCreateRequest(_, _, _, _)).Times(0);
}

TEST(OpenTest, FailedSizeStepsAreLoggedAndTheOpenGoesOn) {
    struct Case {
        Operation operation;
        std::vector<std::string> lines;
        int setWidthCalls;
    };
    const Case cases[] = {
        {Operation::sdkGetSensorWidth, {"Failed to get sensor width"}, 0},
        {Operation::sdkSetWidth, {"Failed to set image width"}, 1},
        {Operation::sdkGetSensorHeight, {"Failed to get sensor height"}, 1},
        {Operation::sdkSetHeight, {"Failed to set image height"}, 1},
    };
    for (const auto& c : cases) {
        DriverFixture f;
        f.sdk.fail(c.operation, 9);
        ASSERT_TRUE(f.camera->initializeCamera(nullptr));
        EXPECT_EQ(f.log->texts(3), c.lines);
        EXPECT_EQ(f.sdk.calls(Operation::sdkSetWidth), c.setWidthCalls);
        EXPECT_EQ(f.sdk.liveRequests(), 120);
        f.camera->releaseCamera();
    }
}

TEST(ReleaseTest, DrainsReleasesAndClosesInOrder) {
    struct Case {
        int takesBeforeEmpty;  // -1: the stream never reports "none left"
        int expectedTakes;
    };
    for (const Case& c : {Case{0, 1}, Case{5, 6}, Case{-1, 120}}) {
        DriverFixture f;
        f.open();
        FakeCamera& sdk = f.sdk;
        int takes = 0;
        {
            InSequence order;
            EXPECT_CALL(sdk, sdkFlushWaitQueue(_));
            EXPECT_CALL(sdk, sdkTakeCompletedRequest(_, _, _, _))
                .Times(c.expectedTakes)
                .WillRepeatedly([&](StreamHandle, RequestHandle*, std::uint8_t**, std::uint32_t*) {
                    return (c.takesBeforeEmpty >= 0 && takes++ == c.takesBeforeEmpty) ? SdkResult::NoCompletedRequest
                                                                                         : 7u;
                });
            EXPECT_CALL(sdk, sdkReleaseRequest(_, _)).Times(120);
            EXPECT_CALL(sdk, sdkCloseStream(_));
            EXPECT_CALL(sdk, sdkCloseCamera(_));
        }
        f.camera->releaseCamera();
        EXPECT_FALSE(f.camera->isInitialized);
        EXPECT_TRUE(f.log->texts(3).empty());
        ::testing::Mock::VerifyAndClearExpectations(&sdk);
        // A second release does nothing at all.
        EXPECT_CALL(sdk, sdkFlushWaitQueue(_)).Times(0);
        EXPECT_CALL(sdk, sdkCloseCamera(_)).Times(0);
        f.camera->releaseCamera();
    }
}

TEST(ReleaseTest, FailuresAreLoggedAndEveryStepStillRuns) {
    DriverFixture f;
    f.open();
    f.sdk.fail(Operation::sdkFlushWaitQueue, 3);
    f.sdk.fail(Operation::sdkReleaseRequest, 3, 6);
    f.sdk.fail(Operation::sdkCloseStream, 3);
    f.sdk.fail(Operation::sdkCloseCamera, 3);
    std::uint8_t* block = f.camera->requestBuffer;
    f.camera->releaseCamera();
    EXPECT_EQ(f.log->texts(3), (std::vector<std::string>{
                                   "Failed to flush camera wait queue",
                                   "Failed to release ImageRequest #5 from camera queue",
                                   "Failed to close image stream",
                                   "Failed to close camera",
                               }));
    EXPECT_EQ(f.sdk.calls(Operation::sdkReleaseRequest), 120);
    EXPECT_FALSE(isMapped(block));
    EXPECT_FALSE(f.camera->isInitialized);
    // After release the camera can be opened again from the start.
    f.sdk.heal(Operation::sdkCloseCamera);
    f.sdk.heal(Operation::sdkCloseStream);
    EXPECT_TRUE(f.camera->initializeCamera("CAM0"));
    EXPECT_TRUE(f.camera->isInitialized);
    f.camera->releaseCamera();
}

}  // namespace
}  // namespace Tavri::testing
