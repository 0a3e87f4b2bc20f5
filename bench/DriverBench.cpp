// The driver's image paths over the simulated rig in benchmark mode (requests complete
// at once, as a camera's DMA would have filled them), measured side by side with the
// plain memory copies they cannot beat; and a sequence from a camera that delivers at
// a 10GigE link's pace. The rig is in bench/DriverBenchRig.h, the figures printed after
// the table in bench/DriverBenchFigures.cpp.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "TavriAPI/ImageSetMemory.h"
#include "bench/AllocationCounter.h"
#include "bench/DriverBenchRig.h"
#include "platform/Platform.h"

namespace Tavri::bench {
namespace {

// Grab sequences of 120 full-size Mono8 images, timed from the return of the start
// (whose own cost is counted apart) to the return of the finish: the worker's waits,
// takes and copies, its join and the stream's stop. The host lets go of each set before
// the next start, as a host that processes sets one by one does; the camera keeps the
// latest until then, so two blocks take turns. `firstSet` empties the pool before each
// start: every set is then the first of its size, prefaulted by the start.
void sequences(benchmark::State& state, bool firstSet) {
    Rig& rig = Rig::get();
    Camera& camera = rig.camera("FULL");
    for (int i = 0; i < 2; ++i) {  // both blocks in the pool
        camera.startGrabSequenceAsync(kImages);
        camera.finishGrabSequenceAsync();
    }
    double startSeconds = 0;
    long faults = 0;
    for (auto _ : state) {
        if (firstSet) releaseIdleImageSetMemory();
        rig.probe->reset();
        const auto before = Clock::now();
        camera.startGrabSequenceAsync(kImages);
        const auto started = Clock::now();
        auto set = camera.finishGrabSequenceAsync();
        state.SetIterationTime(seconds(Clock::now() - started));
        startSeconds += seconds(started - before);
        faults += rig.probe->loopFaults();
        benchmark::DoNotOptimize(set->images.back().data[0]);
    }
    const auto perIteration = static_cast<double>(state.iterations());
    state.counters["start_us"] = startSeconds / perIteration * 1e6;
    state.counters["worker_minflt"] = static_cast<double>(faults) / perIteration;
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSequenceBytes));
}
void BM_SequenceRecycledSet(benchmark::State& state) { sequences(state, false); }
void BM_SequenceFirstSet(benchmark::State& state) { sequences(state, true); }

// The same bytes copied by memcpy from 120 request-sized source buffers, as the
// sequence does: into a new block per run (cold: every page faults on first write), or
// into one block written before (warm). Sources and destination are far larger than
// the caches.
void memcpyBaseline(benchmark::State& state, bool warm) {
    const std::size_t image = kFullWidth * kFullHeight;
    const std::size_t payload = image * 3;
    std::vector<std::uint8_t> source(kImages * payload, 0x5A);
    std::unique_ptr<std::uint8_t[]> reused;
    if (warm) {
        reused.reset(new std::uint8_t[kSequenceBytes]);
        std::memset(reused.get(), 0, kSequenceBytes);
    }
    for (auto _ : state) {
        std::unique_ptr<std::uint8_t[]> fresh(warm ? nullptr : new std::uint8_t[kSequenceBytes]);
        std::uint8_t* block = warm ? reused.get() : fresh.get();
        for (int i = 0; i < kImages; ++i) std::memcpy(block + i * image, source.data() + i * payload, image);
        benchmark::DoNotOptimize(block[kSequenceBytes - 1]);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSequenceBytes));
    state.SetItemsProcessed(state.iterations() * kImages);
}
void BM_ColdMemcpyNewBlock(benchmark::State& state) { memcpyBaseline(state, false); }
void BM_WarmMemcpyReusedBlock(benchmark::State& state) { memcpyBaseline(state, true); }

// A sequence from a camera delivering 1.2 GB/s, into a recycled set: how far the
// worker is behind when the last image completes (the lag from its completion to the
// end of the worker's loop), and when finish returns after it.
void BM_TenGigECamera(benchmark::State& state) {
    Rig& rig = Rig::get();
    Camera& camera = rig.camera("10GIGE");
    for (int i = 0; i < 2; ++i) {  // both blocks in the pool
        camera.startGrabSequenceAsync(kImages);
        camera.finishGrabSequenceAsync();
    }
    double lag = 0, lagMax = 0, finish = 0, finishMax = 0, delivery = 0;
    long faults = 0;
    for (auto _ : state) {
        rig.probe->reset();
        camera.startGrabSequenceAsync(kImages);
        auto set = camera.finishGrabSequenceAsync();
        const auto finished = Clock::now();
        const auto last = rig.pacedSdk->lastCompleted();
        state.SetIterationTime(seconds(finished - rig.pacedSdk->started()));
        lag += seconds(rig.probe->loopEnd() - last);
        lagMax = std::max(lagMax, seconds(rig.probe->loopEnd() - last));
        finish += seconds(finished - last);
        finishMax = std::max(finishMax, seconds(finished - last));
        delivery += seconds(last - rig.pacedSdk->started());
        faults += rig.probe->loopFaults();
        benchmark::DoNotOptimize(set->images.back().data[0]);
    }
    const auto perIteration = static_cast<double>(state.iterations());
    state.counters["camera_MBps"] = kSequenceBytes / 1e6 / (delivery / perIteration);
    state.counters["lag_us"] = lag / perIteration * 1e6;
    state.counters["lag_max_us"] = lagMax * 1e6;
    state.counters["finish_us"] = finish / perIteration * 1e6;
    state.counters["finish_max_us"] = finishMax * 1e6;
    state.counters["worker_minflt"] = static_cast<double>(faults) / perIteration;
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSequenceBytes));
}

// Sequences of 1 and of 120 images of 128 x 16 pixels: the difference between the two,
// per image, is the cost of waiting, taking and bookkeeping without start and finish.
// The second argument: 1 when the records get the backend's frame information, 0 for
// the host's time alone (the cost before records carried more than that).
void BM_SequenceSmallImages(benchmark::State& state) {
    Camera& camera = Rig::get().camera("SMALL");
    const int count = static_cast<int>(state.range(0));
    camera.frameInfo(state.range(1) != 0);
    Rig& rig = Rig::get();
    std::uint64_t workerAllocations = 0;
    for (auto _ : state) {
        rig.probe->reset();
        camera.startGrabSequenceAsync(count);
        benchmark::DoNotOptimize(camera.finishGrabSequenceAsync());
        workerAllocations += rig.probe->loopAllocations();
    }
    state.counters["worker_allocs_per_set"] =
        static_cast<double>(workerAllocations) / static_cast<double>(state.iterations());
    camera.frameInfo(true);
    state.SetItemsProcessed(state.iterations() * count);
}

// Continuous grabbing of full-size images into one preallocated image; counts heap
// allocations per image in the steady state.
void BM_ContinuousGrab(benchmark::State& state) {
    Camera& camera = Rig::get().camera("FULL");
    camera.setMode(static_cast<ImageType>(state.range(0)));
    cv::Mat image(camera.getRows(), camera.getCols(), state.range(0) == 1 ? CV_8UC3 : CV_8UC1);
    camera.initGrabContinuous();
    for (int i = 0; i < 10; ++i) camera.getNextImage(image, 1000);  // reach the steady state
    const std::uint64_t allocationsBefore = allocationCount();
    for (auto _ : state) camera.getNextImage(image, 1000);
    const std::uint64_t allocations = allocationCount() - allocationsBefore;
    camera.releaseGrabContinuous();
    camera.setMode(ImageType::Gray);
    state.counters["allocs_per_image"] =
        benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(image.total() * image.elemSize()));
    state.SetItemsProcessed(state.iterations());
}

// Time from setEvent on one thread to the return of a wait on another.
void BM_EventWakeLatency(benchmark::State& state) {
    platform::EventHandle ping = platform::createEvent(), pong = platform::createEvent();
    std::vector<double> microseconds;
    std::chrono::steady_clock::time_point sent;
    std::atomic<bool> stop{false};
    std::thread waiter([&] {
        while (true) {
            platform::waitForEvent(ping, platform::kInfinite);
            if (stop) break;
            microseconds.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - sent).count());
            platform::setEvent(pong);
        }
    });
    microseconds.reserve(1 << 20);
    for (auto _ : state) {
        sent = std::chrono::steady_clock::now();
        platform::setEvent(ping);
        platform::waitForEvent(pong, platform::kInfinite);
    }
    stop = true;
    platform::setEvent(ping);
    waiter.join();
    platform::closeEvent(ping);
    platform::closeEvent(pong);
    std::sort(microseconds.begin(), microseconds.end());
    const auto at = [&](double q) { return microseconds[static_cast<std::size_t>(q * (microseconds.size() - 1))]; };
    state.counters["p50_us"] = at(0.50);
    state.counters["p99_us"] = at(0.99);
}

BENCHMARK(BM_SequenceRecycledSet)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseManualTime();
BENCHMARK(BM_SequenceFirstSet)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseManualTime();
BENCHMARK(BM_ColdMemcpyNewBlock)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_WarmMemcpyReusedBlock)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_TenGigECamera)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseManualTime();
BENCHMARK(BM_SequenceSmallImages)
    ->Args({1, 0})
    ->Args({kImages, 0})
    ->Args({1, 1})
    ->Args({kImages, 1})
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0)
    ->UseRealTime();
BENCHMARK(BM_ContinuousGrab)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_EventWakeLatency)->Unit(benchmark::kMicrosecond)->MinTime(1.0)->UseRealTime();

}  // namespace
}  // namespace Tavri::bench
