// The driver's image paths over the simulated rig in benchmark mode (requests complete
// at once, as a camera's DMA would have filled them), measured side by side with the
// plain memory copy they cannot beat.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Logger.h"
#include "bench/AllocationCounter.h"
#include "platform/Platform.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::bench {
namespace {

constexpr int kImages = 120;
constexpr std::size_t kFullWidth = 1920, kFullHeight = 1200;

// Driver log lines are not part of what is measured.
class QuietLogger : public Log::LoggerInterface {
public:
    void log(int, const char*, int, const std::string&) override {}
};

class Camera : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;
    // A camera's DMA writes every request buffer; untouched pages would all read as
    // the kernel's one zero page and flatter every copy.
    void touchRequestBuffers() {
        std::memset(requestBuffer, 0x5A, static_cast<std::size_t>(STRM_REQUEST_NUM) * payloadSize);
    }
};

// One rig, one opened camera per sensor size, kept for the whole run.
struct Rig {
    Rig() {
        Log::GlobalLogger::install(std::make_shared<QuietLogger>());
        sim::RigConfig rig;
        rig.render = false;
        sim::CameraConfig full;
        full.serial = "FULL";
        sim::CameraConfig small = full;
        small.serial = "SMALL";
        small.width = sim::kMinWidth;
        small.height = sim::kMinHeight;
        rig.cameras = {full, small};
        sdk = std::make_unique<sim::SimSdk>(rig);
        sdk->sdkInitialize(65535);
        for (const char* serial : {"FULL", "SMALL"}) {
            auto camera = std::make_unique<Camera>(*sdk);
            camera->initializeCamera(serial);
            camera->setMode(ImageType::Gray);
            camera->touchRequestBuffers();
            cameras[serial] = std::move(camera);
        }
    }
    ~Rig() {
        for (auto& [serial, camera] : cameras) camera->releaseCamera();
        cameras.clear();
        sdk->sdkTerminate();
    }
    static Rig& get() {
        static Rig rig;
        return rig;
    }
    Camera& camera(const char* serial) { return *cameras.at(serial); }

    std::unique_ptr<sim::SimSdk> sdk;
    std::map<std::string, std::unique_ptr<Camera>> cameras;
};

// A grab sequence of 120 full-size Mono8 images: start, the worker's waits, takes and
// copies into a new image set, finish.
void BM_SequenceCopy(benchmark::State& state) {
    Camera& camera = Rig::get().camera("FULL");
    for (auto _ : state) {
        camera.startGrabSequenceAsync(kImages);
        auto set = camera.finishGrabSequenceAsync();
        benchmark::DoNotOptimize(set->images.back().data[0]);
    }
    state.SetBytesProcessed(state.iterations() * kImages * kFullWidth * kFullHeight);
    state.SetItemsProcessed(state.iterations() * kImages);
}

// The same bytes copied by memcpy from 120 request-sized source buffers into a new
// block per run, as the sequence does; sources and destination are far larger than
// the caches, so every copy is cold.
void BM_ColdMemcpyNewBlock(benchmark::State& state) {
    const std::size_t image = kFullWidth * kFullHeight;
    const std::size_t payload = image * 3;
    std::vector<std::uint8_t> source(kImages * payload, 0x5A);
    for (auto _ : state) {
        std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[kImages * image]);
        for (int i = 0; i < kImages; ++i) std::memcpy(block.get() + i * image, source.data() + i * payload, image);
        benchmark::DoNotOptimize(block[kImages * image - 1]);
    }
    state.SetBytesProcessed(state.iterations() * kImages * image);
    state.SetItemsProcessed(state.iterations() * kImages);
}

// Sequences of 1 and of 120 images of 128 x 16 pixels: the difference between the two,
// per image, is the cost of waiting, taking and bookkeeping without start and finish.
void BM_SequenceSmallImages(benchmark::State& state) {
    Camera& camera = Rig::get().camera("SMALL");
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        camera.startGrabSequenceAsync(count);
        benchmark::DoNotOptimize(camera.finishGrabSequenceAsync());
    }
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

BENCHMARK(BM_SequenceCopy)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_ColdMemcpyNewBlock)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_SequenceSmallImages)->Arg(1)->Arg(kImages)->Unit(benchmark::kMicrosecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_ContinuousGrab)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_EventWakeLatency)->Unit(benchmark::kMicrosecond)->MinTime(1.0)->UseRealTime();

// Keeps each run's figures so that the ratios can be printed after the table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) results[run.benchmark_name()] = run;
    }
    std::map<std::string, Run> results;
};

}  // namespace
}  // namespace Tavri::bench

int main(int argc, char** argv) {
    using namespace Tavri::bench;
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto find = [&](const std::string& prefix) -> const benchmark::BenchmarkReporter::Run* {
        for (const auto& [name, run] : reporter.results)
            if (name.rfind(prefix, 0) == 0) return &run;
        return nullptr;
    };
    const auto secondsPerIteration = [](const benchmark::BenchmarkReporter::Run& run) {
        return run.real_accumulated_time / static_cast<double>(run.iterations);
    };
    const auto* sequence = find("BM_SequenceCopy");
    const auto* memcpyRun = find("BM_ColdMemcpyNewBlock");
    const auto* one = find("BM_SequenceSmallImages/1/");
    const auto* many = find("BM_SequenceSmallImages/120/");
    std::cout << "\n";
    if (sequence && memcpyRun) {
        const double driver = secondsPerIteration(*sequence), plain = secondsPerIteration(*memcpyRun);
        const double megabytes = kImages * kFullWidth * kFullHeight / 1e6;
        std::cout << "sequence copy path:      " << megabytes / driver << " MB/s\n"
                  << "cold memcpy, same bytes: " << megabytes / plain << " MB/s\n"
                  << "ratio sequence/memcpy:   " << plain / driver << "  (target >= 0.90)\n"
                  << "overhead besides copy:   " << (driver - plain) / kImages * 1e6 << " us per image\n";
    }
    if (one && many)
        std::cout << "per-image overhead:      "
                  << (secondsPerIteration(*many) - secondsPerIteration(*one)) / (kImages - 1) * 1e6
                  << " us (wait, take, bookkeeping; target <= 5)\n"
                  << "sequence start+finish:   " << secondsPerIteration(*one) * 1e6 << " us for one image\n";
    benchmark::Shutdown();
    return 0;
}
