// The rig's frame producer: hardware-triggered sequences from the projector,
// software triggers, free run, late, dropped and burst frames, unplugging mid-stream,
// and prompt joins. A worker thread waits and takes while the host thread works, as
// the driver's sequence worker does.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "RigFixture.h"

namespace Tavri::sim::test {
namespace {

using namespace SimResult;
using Clock = std::chrono::steady_clock;

struct Image {
    Result result;
    FrameStamp stamp;
    std::vector<std::uint8_t> bytes;
};

// Waits once per image and takes it, on a thread of its own, until `count` images or
// the first failure.
std::vector<Image> collect(OpenCamera& cam, std::size_t count, std::uint32_t timeoutMs) {
    std::vector<Image> images;
    std::thread worker([&] {
        for (std::size_t i = 0; i < count; ++i) {
            const Taken t = cam.waitAndTake(timeoutMs);
            if (t.result != Success) {
                images.push_back({t.result, {}, {}});
                return;
            }
            Image image{Success, {}, std::vector<std::uint8_t>(t.buffer, t.buffer + t.size)};
            image.stamp = cam.stamp(t);
            images.push_back(std::move(image));
        }
    });
    worker.join();
    return images;
}

class Producer : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sdk.sdkInitialize(65535), 0u); }
    void TearDown() override { EXPECT_EQ(sdk.runningThreads(), 0u); }
    SimSdk sdk{smallRig()};
};

TEST_F(Producer, HardwareTriggeredSequencesShowPatternKInImageK) {
    OpenCamera cam(sdk, 0, 120);
    cam.hardwareTrigger();
    ASSERT_EQ(sdk.sdkSetPixelFormat(cam.camera, PixelFormat::RGB8), Success);
    cam.format = PixelFormat::RGB8;
    FrameSettings settings;
    settings.pixelFormat = PixelFormat::RGB8;
    settings.width = 256;
    settings.height = 64;
    for (std::size_t n : {1u, 12u, 120u}) {
        SCOPED_TRACE(n);
        cam.enqueue(n);
        ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
        const auto images = collect(cam, n, 1000);
        ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
        ASSERT_EQ(images.size(), n);
        for (std::uint32_t k = 0; k < n; ++k) {
            ASSERT_EQ(images[k].result, Success) << k;
            EXPECT_EQ(images[k].stamp.pattern, k);
            EXPECT_EQ(images[k].stamp.frame, k);
            if (k < 12) {
                EXPECT_EQ(images[k].bytes, renderFrame(sdk.rig(), 0, settings, k, k)) << k;
            }
        }
        // Pulses after the last request found no request: lost, not queued.
        ASSERT_EQ(sdk.sdkFlushWaitQueue(cam.stream), Success);
        EXPECT_EQ(cam.take().result, NoCompletedRequest);
    }
}

TEST_F(Producer, FallingEdgeComesAPulseWidthAfterTheRisingOne) {
    RigConfig rig = smallRig();
    rig.projector.rate = 10.0;         // a pulse every 100 ms
    rig.projector.pulseWidthMs = 60.0;
    ASSERT_TRUE(sdk.setRig(rig));
    OpenCamera cam(sdk, 0, 1);
    cam.hardwareTrigger();
    std::chrono::milliseconds firstImage[2];
    for (std::uint32_t activation : {1u, 1u, 0u}) {  // the first round makes the scene
        ASSERT_EQ(sdk.sdkSetTriggerActivation(cam.camera, activation), Success);
        cam.enqueue(1);
        const auto started = Clock::now();
        ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
        ASSERT_EQ(cam.waitAndTake(2000).result, Success);
        firstImage[activation] = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
        ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    }
    EXPECT_GE(firstImage[1].count(), 100) << "rising edge one period after the start";
    EXPECT_GE((firstImage[0] - firstImage[1]).count(), 40) << "falling edge 60 ms after the rising one";
}

TEST_F(Producer, SoftwareTriggerGivesExactlyOneFrameEach) {
    OpenCamera cam(sdk, 0, 8);
    cam.softwareTrigger();
    cam.enqueue(8);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_NE(platform::waitForEvent(cam.event, 100), 0u) << "no frame without a trigger";
    for (std::uint32_t k = 0; k < 3; ++k) {
        ASSERT_EQ(sdk.sdkExecuteSoftwareTrigger(cam.camera), Success);
        const Taken t = cam.waitAndTake(1000);
        ASSERT_EQ(t.result, Success);
        EXPECT_EQ(cam.stamp(t).frame, k);
        EXPECT_EQ(cam.stamp(t).pattern, kNoPattern);
    }
    EXPECT_NE(platform::waitForEvent(cam.event, 50), 0u);
    EXPECT_EQ(sdk.stats(0).triggers, 3u);
}

TEST_F(Producer, FreeRunDeliversAtTheFrameRateAndLosesFramesWithoutRequests) {
    OpenCamera cam(sdk, 0, 4);
    cam.enqueue(4);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);  // trigger mode off, source 0
    const auto images = collect(cam, 4, 500);
    ASSERT_EQ(images.size(), 4u);
    for (std::uint32_t k = 0; k < 4; ++k) EXPECT_EQ(images[k].stamp.frame, k);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(sdk.sdkStopStream(cam.stream), Success);
    EXPECT_GT(sdk.stats(0).lost, 0u);
}

TEST_F(Producer, FrameFaultsDropDelayAndBurst) {
    struct Case {
        const char* what;
        FrameFault fault;
        std::vector<std::uint32_t> frames;  // stamps of the images that arrive, in order
    };
    FrameFault drop{FrameFault::Kind::Drop, 2, 2};
    FrameFault late{FrameFault::Kind::Late, 1, 1};
    late.delayMs = 150;
    FrameFault burst{FrameFault::Kind::Burst, 0};
    burst.burst = 5;
    const Case cases[] = {
        {"drop", drop, {0, 1, 4, 5, 6}},
        {"late, order kept", late, {0, 1, 2, 3, 4}},
        {"burst", burst, {0, 1, 2, 3, 4}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        sdk.clearFrameFaults(0);
        sdk.addFrameFault(0, c.fault);
        OpenCamera cam(sdk, 0, 5);
        cam.hardwareTrigger();
        cam.enqueue(5);
        const auto started = Clock::now();
        ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
        const auto images = collect(cam, 5, 1000);
        const auto elapsed = Clock::now() - started;
        ASSERT_EQ(images.size(), 5u);
        for (std::size_t i = 0; i < 5; ++i) {
            ASSERT_EQ(images[i].result, Success) << i;
            EXPECT_EQ(images[i].stamp.frame, c.frames[i]);
            EXPECT_EQ(images[i].stamp.pattern, c.frames[i]) << "a lost frame loses its pattern";
        }
        if (c.fault.kind == FrameFault::Kind::Late) {
            EXPECT_GE(elapsed, std::chrono::milliseconds(150));
        }
    }
}

TEST_F(Producer, BurstCompletionsAreEachFoundByOneWaitPerTake) {
    FrameFault burst{FrameFault::Kind::Burst, 0};
    burst.burst = 10;
    sdk.addFrameFault(0, burst);
    OpenCamera cam(sdk, 0, 30);
    cam.hardwareTrigger();
    cam.enqueue(30);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    const auto images = collect(cam, 30, 1000);
    ASSERT_EQ(images.size(), 30u);
    for (std::uint32_t k = 0; k < 30; ++k) {
        ASSERT_EQ(images[k].result, Success) << k;
        EXPECT_EQ(images[k].stamp.pattern, k);
    }
}

TEST_F(Producer, AnUnpluggedCameraStopsDeliveringAndCanStillBeClosed) {
    OpenCamera cam(sdk, 0, 10);
    cam.hardwareTrigger();
    cam.enqueue(10);
    sdk.unplugAfterFrames(0, 3);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    const auto images = collect(cam, 10, 300);
    ASSERT_EQ(images.size(), 4u);
    EXPECT_EQ(images[3].result, 0xFFFFFFFFu) << "the fourth wait times out";
    EXPECT_EQ(sdk.condition(0), CameraCondition::Unplugged);
    std::uint32_t count = 0, width = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(sdk.sdkGetWidth(cam.camera, &width), CameraUnplugged);
    cam.close();
    EXPECT_EQ(sdk.runningThreads(), 0u);
    EXPECT_EQ(sdk.openHandles(), 0u);
}

TEST_F(Producer, OversizeFrameFailsTheTakeInRenderMode) {
    sdk.addFrameFault(0, FrameFault{FrameFault::Kind::Oversize, 0, 1});
    OpenCamera cam(sdk, 0, 2);
    cam.hardwareTrigger();
    cam.enqueue(2);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_EQ(cam.waitAndTake(1000).result, FrameTooLarge);
    EXPECT_EQ(cam.waitAndTake(1000).result, Success);
}

TEST_F(Producer, StopCloseTerminateAndDestructionJoinPromptly) {
    RigConfig slow = smallRig();
    slow.frameRate = 0.5;         // next free-run frame in two seconds
    slow.projector.rate = 0.5;
    ASSERT_TRUE(sdk.setRig(slow));
    const auto timed = [](auto&& action) {
        const auto started = Clock::now();
        action();
        return Clock::now() - started;
    };
    const auto prompt = std::chrono::milliseconds(200);

    OpenCamera cam(sdk, 0, 2);
    cam.enqueue(2);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    EXPECT_EQ(sdk.runningThreads(), 1u);
    EXPECT_LT(timed([&] { EXPECT_EQ(sdk.sdkStopStream(cam.stream), Success); }), prompt);
    EXPECT_EQ(sdk.runningThreads(), 0u);

    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success) << "a restart replaces the producer";
    EXPECT_EQ(sdk.runningThreads(), 1u);
    EXPECT_LT(timed([&] { EXPECT_EQ(sdk.sdkCloseCamera(cam.camera), Success); }), prompt);
    EXPECT_EQ(sdk.runningThreads(), 0u);
    cam.camera = nullptr;

    OpenCamera second(sdk, 1, 1);
    ASSERT_EQ(sdk.sdkStartStream(second.stream, 8), Success);
    EXPECT_LT(timed([&] { EXPECT_EQ(sdk.sdkTerminate(), Success); }), prompt);
    EXPECT_EQ(sdk.runningThreads(), 0u);
    second.camera = nullptr;

    auto owned = std::make_unique<SimSdk>(slow);
    ASSERT_EQ(owned->sdkInitialize(65535), Success);
    {
        OpenCamera third(*owned, 0, 1);
        ASSERT_EQ(owned->sdkStartStream(third.stream, 8), Success);
        third.camera = nullptr;  // left running on purpose
    }
    EXPECT_LT(timed([&] { owned.reset(); }), prompt);
}

TEST_F(Producer, HostCallsRaceWithAWorkerThatWaitsAndTakes) {
    OpenCamera cam(sdk, 0, 16);
    cam.softwareTrigger();
    cam.enqueue(16);
    ASSERT_EQ(sdk.sdkStartStream(cam.stream, 8), Success);
    std::atomic<int> taken{0};
    std::atomic<bool> done{false};
    std::thread worker([&] {
        while (!done) {
            const Taken t = cam.waitAndTake(20);
            if (t.result == Success) {
                ++taken;
                EXPECT_EQ(sdk.sdkEnqueueRequest(cam.stream, t.request), Success);
            }
        }
    });
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(sdk.sdkExecuteSoftwareTrigger(cam.camera), Success);
        double exposure = 0;
        EXPECT_EQ(sdk.sdkSetExposureTime(cam.camera, 1000.0 + i), Success);
        EXPECT_EQ(sdk.sdkGetExposureTime(cam.camera, &exposure), Success);
        std::uint32_t count = 0;
        EXPECT_EQ(sdk.sdkGetCameraCount(&count), Success);
        if (i % 50 == 0) sdk.stats(0);
    }
    // Every trigger makes a frame; a frame that finds every request busy is lost.
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    const auto settled = [&] {
        const auto stats = sdk.stats(0);
        return stats.triggers == 200 && stats.completed == static_cast<std::uint64_t>(taken.load());
    };
    while (!settled() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    done = true;
    worker.join();
    const auto stats = sdk.stats(0);
    EXPECT_EQ(stats.triggers, 200u);
    EXPECT_EQ(stats.completed + stats.lost, 200u);
    EXPECT_EQ(stats.completed, static_cast<std::uint64_t>(taken.load()));
    EXPECT_GE(taken, 16);
}

}  // namespace
}  // namespace Tavri::sim::test
