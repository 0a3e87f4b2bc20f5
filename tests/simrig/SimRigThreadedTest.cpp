// The rig's frame producer: hardware-triggered sequences from the projector,
// software triggers, free run, late, dropped and burst frames, unplugging mid-stream,
// and prompt joins. A worker thread waits and takes while the host thread works, as
// the driver's sequence worker does.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "RigFixture.h"

namespace Tavri::sim::test {
namespace {

using namespace SimResult;
using Clock = std::chrono::steady_clock;
using Producer = RigTest<true>;

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
            images.push_back({Success, cam.stamp(t), std::vector<std::uint8_t>(t.buffer, t.buffer + t.size)});
        }
    });
    worker.join();
    return images;
}

// Image k of a line-triggered sequence shows pattern k, rendered exactly, also when
// frames are dropped (a lost frame takes its pattern with it), late (order is kept) or
// completed in bursts (one wait per take finds every image of a burst).
TEST_F(Producer, HardwareTriggeredSequencesShowPatternKInImageK) {
    FrameFault late{FrameFault::Kind::Late, 1, 1};
    late.delayMs = 150;
    FrameFault burst{FrameFault::Kind::Burst, 0};
    burst.burst = 5;
    // Groups that can never fill: six burst frames in groups of four, and a drop
    // inside the second of two groups; each completes with the frames it has.
    FrameFault shortBurst{FrameFault::Kind::Burst, 0, 6};
    shortBurst.burst = 4;
    FrameFault twoGroups{FrameFault::Kind::Burst, 0, 8};
    twoGroups.burst = 4;
    struct Case {
        const char* what;
        std::size_t count;
        std::vector<FrameFault> faults;
        std::vector<std::uint32_t> frames;  // of the images that arrive, in order; empty: 0, 1, ...
    };
    const Case cases[] = {
        {"1", 1, {}, {}},
        {"12", 12, {}, {}},
        {"120", 120, {}, {}},
        {"drop", 10, {FrameFault{FrameFault::Kind::Drop, 2, 2}}, {0, 1, 4, 5, 6, 7, 8, 9, 10, 11}},
        {"late", 10, {late}, {}},
        {"burst", 10, {burst}, {}},
        {"burst count not a multiple of the group", 10, {shortBurst}, {}},
        {"drop inside a burst group", 10, {twoGroups, FrameFault{FrameFault::Kind::Drop, 5, 1}},
         {0, 1, 2, 3, 4, 6, 7, 8, 9, 10}},
    };
    const FrameSettings settings{PixelFormat::RGB8, 256, 64};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        sdk.clearFrameFaults(0);
        for (const auto& fault : c.faults) sdk.addFrameFault(0, fault);
        OpenCamera cam(sdk, 0, c.count);
        cam.hardwareTrigger();
        ASSERT_EQ(sdk.sdkSetPixelFormat(cam.camera, PixelFormat::RGB8), Success);
        cam.format = PixelFormat::RGB8;
        cam.enqueue(c.count);
        cam.start();
        const auto images = collect(cam, c.count, 1000);
        cam.stop();
        ASSERT_EQ(images.size(), c.count);
        for (std::uint32_t k = 0; k < c.count; ++k) {
            const std::uint32_t frame = c.frames.empty() ? k : c.frames[k];
            ASSERT_EQ(images[k].result, Success) << k;
            EXPECT_EQ(images[k].stamp.frame, frame);
            EXPECT_EQ(images[k].stamp.pattern, frame);
            if (k < 12) {
                EXPECT_EQ(images[k].bytes, renderFrame(sdk.rig(), 0, settings, frame, frame)) << k;
            }
        }
        // Pulses after the last request found no request: lost, not queued.
        ASSERT_EQ(sdk.sdkFlushWaitQueue(cam.stream), Success);
        EXPECT_EQ(cam.take().result, NoCompletedRequest);
    }
}

TEST_F(Producer, SoftwareTriggersGiveOneFrameEachAndFreeRunLosesFramesThatFindNoRequest) {
    OpenCamera cam(sdk, 0, 8);
    cam.softwareTrigger();
    cam.enqueue(8);
    cam.start();
    for (std::uint32_t k = 0; k < 3; ++k) {
        ASSERT_EQ(sdk.sdkExecuteSoftwareTrigger(cam.camera), Success);
        ASSERT_EQ(cam.waitAndTake(1000).result, Success);
    }
    EXPECT_NE(platform::waitForEvent(cam.event, 100), 0u) << "no frame without a trigger";
    EXPECT_EQ(sdk.stats(0).triggers, 3u);
    cam.close();

    OpenCamera freeRun(sdk, 1, 4);
    freeRun.enqueue(4);
    freeRun.start();  // trigger mode off, source 0
    const auto images = collect(freeRun, 4, 500);
    ASSERT_EQ(images.size(), 4u);
    for (std::uint32_t k = 0; k < 4; ++k) EXPECT_EQ(images[k].stamp.frame, k);
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (sdk.stats(1).lost == 0 && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_GT(sdk.stats(1).lost, 0u);
}

TEST_F(Producer, AnUnpluggedCameraStopsDeliveringAndCanStillBeClosed) {
    OpenCamera cam(sdk, 0, 10);
    cam.hardwareTrigger();
    cam.enqueue(10);
    sdk.unplugAfterFrames(0, 3);
    cam.start();
    const auto images = collect(cam, 10, 300);
    ASSERT_EQ(images.size(), 4u);
    EXPECT_EQ(images[3].result, 0xFFFFFFFFu) << "the fourth wait times out";
    EXPECT_EQ(sdk.condition(0), CameraCondition::Unplugged);
    std::uint32_t width = 0;
    EXPECT_EQ(sdk.sdkGetWidth(cam.camera, &width), CameraUnplugged);
    // Gone from the enumeration: the other camera moves up.
    std::uint32_t count = 0;
    CameraInfoRecord record;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count) | sdk.sdkGetCameraInfo(nullptr, 0, &record), Success);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(record.serialNumber(), "SIM0002");
    cam.close();
    EXPECT_EQ(sdk.openHandles(), 0u);
}

// The next frame or pulse is 100 s away: a join that waited for it would take that long.
TEST(ProducerJoin, StopCloseTerminateAndDestructionJoinWithoutWaitingForTheNextFrame) {
    RigConfig slow = smallRig();
    slow.frameRate = 0.01;
    slow.projector.rate = 0.01;
    struct Case {
        const char* what;
        std::function<void(std::unique_ptr<SimSdk>&, OpenCamera&)> end;
    };
    const Case cases[] = {
        {"stop", [](auto&, OpenCamera& cam) { cam.stop(); }},
        {"close camera", [](auto& sdk, OpenCamera& cam) { EXPECT_EQ(sdk->sdkCloseCamera(cam.camera), Success); }},
        {"terminate", [](auto& sdk, OpenCamera&) { EXPECT_EQ(sdk->sdkTerminate(), Success); }},
        {"destruction", [](auto& sdk, OpenCamera&) { sdk.reset(); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto sdk = std::make_unique<SimSdk>(slow);
        ASSERT_EQ(sdk->sdkInitialize(65535), Success);
        OpenCamera cam(*sdk, 0, 1);
        cam.enqueue(1);
        cam.start();
        cam.start();  // a restart replaces the producer
        EXPECT_EQ(sdk->runningThreads(), 1u);
        const auto started = Clock::now();
        c.end(sdk, cam);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(30));
        EXPECT_EQ(sdk ? sdk->runningThreads() : 0u, 0u);
        if (std::string(c.what) != "stop") cam.camera = nullptr;  // nothing left to close
    }
}

TEST_F(Producer, HostCallsRaceWithAWorkerThatWaitsAndTakes) {
    OpenCamera cam(sdk, 0, 16);
    cam.softwareTrigger();
    cam.enqueue(16);
    cam.start();
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
        EXPECT_EQ(sdk.sdkExecuteSoftwareTrigger(cam.camera), Success);
        EXPECT_EQ(sdk.sdkSetExposureTime(cam.camera, 1000.0 + i), Success);
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
