// The driver's image paths over the simulated rig in benchmark mode (requests complete
// at once, as a camera's DMA would have filled them), measured side by side with the
// plain memory copies they cannot beat; and a sequence from a camera that delivers at
// a 10GigE link's pace.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "TavriAPI/ImageSetMemory.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Logger.h"
#include "bench/AllocationCounter.h"
#include "platform/Platform.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kImages = 120;
constexpr std::size_t kFullWidth = 1920, kFullHeight = 1200;
constexpr std::size_t kSequenceBytes = kImages * kFullWidth * kFullHeight;
// A 10GigE camera: 1.2 GB/s of full-size Mono8 images.
constexpr std::chrono::nanoseconds kTenGigEPeriod{kFullWidth * kFullHeight * 1000 / 1200};

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// In place of the host's logger: drops the driver's lines, and marks the worker's first
// and last line of a sequence (before and after its image loop) with the time and the
// minor page faults its thread has taken so far.
class WorkerProbe : public Log::LoggerInterface {
public:
    struct Mark {
        Clock::time_point time;
        long minorFaults;
        std::uint64_t allocations;
    };
    void log(int, const char*, int, const std::string&) override {
        if (std::this_thread::get_id() == host) return;
        rusage usage{};
        ::getrusage(RUSAGE_THREAD, &usage);
        const Mark mark{Clock::now(), usage.ru_minflt, threadAllocationCount()};
        std::lock_guard<std::mutex> lock(mutex);
        if (!first) first = mark;
        last = mark;
    }
    void reset() {
        std::lock_guard<std::mutex> lock(mutex);
        first.reset();
        last.reset();
    }
    // After a finish: faults taken over the image loop, and when the loop ended.
    long loopFaults() {
        std::lock_guard<std::mutex> lock(mutex);
        return last->minorFaults - first->minorFaults;
    }
    // Heap allocations by the worker between its first and last log line.
    std::uint64_t loopAllocations() {
        std::lock_guard<std::mutex> lock(mutex);
        return last->allocations - first->allocations;
    }
    Clock::time_point loopEnd() {
        std::lock_guard<std::mutex> lock(mutex);
        return last->time;
    }

private:
    const std::thread::id host = std::this_thread::get_id();
    std::mutex mutex;
    std::optional<Mark> first, last;
};

// A camera on a 10GigE link. Benchmark mode fills every queued request at the start;
// this hands them to the driver one per link period instead: it keeps the driver's
// event for itself, signals it as each image completes, and again after a take that
// leaves completed images (the completion-event rule). One stream at a time.
class PacedSdk : public sim::SimSdk {
public:
    PacedSdk(sim::RigConfig rig, std::chrono::nanoseconds period) : SimSdk(std::move(rig)), period(period) {}
    ~PacedSdk() override { stopPacer(); }

    Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                         std::uint32_t reserved) override {
        driverEvent = event;
        simEvent = platform::createEvent();
        return SimSdk::sdkOpenStream(camera, simEvent, payloadSize, stream, reserved);
    }
    Result sdkCloseStream(StreamHandle stream) override {
        const Result result = SimSdk::sdkCloseStream(stream);
        platform::closeEvent(simEvent);
        return result;
    }
    Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) override {
        ++queued;
        return SimSdk::sdkEnqueueRequest(stream, request);
    }
    Result sdkStartStream(StreamHandle stream, std::uint32_t mode) override {
        const Result result = SimSdk::sdkStartStream(stream, mode);
        if (result != SdkResult::Success) return result;
        std::lock_guard<std::mutex> lock(mutex);
        pacing = true;
        released = taken = 0;
        start = Clock::now();
        pacer = std::thread([this, count = queued] { pace(count); });
        queued = 0;
        return result;
    }
    Result sdkStopStream(StreamHandle stream) override {
        stopPacer();
        return SimSdk::sdkStopStream(stream);
    }
    Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                   std::uint32_t* size) override {
        const Result result = SimSdk::sdkTakeCompletedRequest(stream, request, buffer, size);
        std::lock_guard<std::mutex> lock(mutex);
        if (pacing && result == SdkResult::Success && ++taken < released) platform::setEvent(driverEvent);
        return result;
    }

    // Read after a stop: when acquisition started and when its last image completed.
    Clock::time_point started() const { return start; }
    Clock::time_point lastCompleted() const { return last; }

private:
    void pace(int count) {
        std::unique_lock<std::mutex> lock(mutex);
        for (int k = 1; k <= count; ++k) {
            if (wake.wait_until(lock, start + k * period, [this] { return !pacing; })) return;
            ++released;
            last = Clock::now();
            platform::setEvent(driverEvent);
        }
    }
    void stopPacer() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            pacing = false;
        }
        wake.notify_all();
        if (pacer.joinable()) pacer.join();
    }

    const std::chrono::nanoseconds period;
    EventHandle driverEvent = nullptr, simEvent = nullptr;
    int queued = 0;
    std::mutex mutex;
    std::condition_variable wake;
    std::thread pacer;
    bool pacing = false;
    int released = 0, taken = 0;
    Clock::time_point start, last;
};

class Camera : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;
    // As over a backend that tells nothing of its frames (the vendor DLL): records get
    // the host's time alone.
    void frameInfo(bool on) { frameInfoSource = on ? dynamic_cast<FrameInfoSource*>(&sdk) : nullptr; }
    // A camera's DMA writes every request buffer; untouched pages would all read as
    // the kernel's one zero page and flatter every copy.
    void touchRequestBuffers() {
        std::memset(requestBuffer, 0x5A, static_cast<std::size_t>(STRM_REQUEST_NUM) * payloadSize);
    }
};

// One rig, one opened camera per sensor size, and the 10GigE camera on a rig of its
// own, kept for the whole run.
struct Rig {
    Rig() {
        Log::GlobalLogger::install(probe);
        sim::RigConfig rig;
        rig.render = false;
        sim::CameraConfig full;
        full.serial = "FULL";
        sim::CameraConfig small = full;
        small.serial = "SMALL";
        small.width = sim::kMinWidth;
        small.height = sim::kMinHeight;
        sim::CameraConfig tenGigECamera = full;
        tenGigECamera.serial = "10GIGE";
        sim::RigConfig tenGigE = rig;
        tenGigE.cameras = {tenGigECamera};
        rig.cameras = {full, small};
        sdk = std::make_unique<sim::SimSdk>(rig);
        sdk->sdkInitialize(65535);
        pacedSdk = std::make_unique<PacedSdk>(tenGigE, kTenGigEPeriod);
        pacedSdk->sdkInitialize(65535);
        for (auto [serial, over] : {std::pair<const char*, sim::SimSdk*>{"FULL", sdk.get()},
                                    {"SMALL", sdk.get()}, {"10GIGE", pacedSdk.get()}}) {
            auto camera = std::make_unique<Camera>(*over);
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
        pacedSdk->sdkTerminate();
    }
    static Rig& get() {
        static Rig rig;
        return rig;
    }
    Camera& camera(const char* serial) { return *cameras.at(serial); }

    std::shared_ptr<WorkerProbe> probe = std::make_shared<WorkerProbe>();
    std::unique_ptr<sim::SimSdk> sdk;
    std::unique_ptr<PacedSdk> pacedSdk;
    std::map<std::string, std::unique_ptr<Camera>> cameras;
};

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
    const auto counter = [](const benchmark::BenchmarkReporter::Run& run, const char* name) {
        return run.counters.at(name).value;
    };
    const auto* recycled = find("BM_SequenceRecycledSet");
    const auto* first = find("BM_SequenceFirstSet");
    const auto* cold = find("BM_ColdMemcpyNewBlock");
    const auto* warm = find("BM_WarmMemcpyReusedBlock");
    const auto* tenGigE = find("BM_TenGigECamera");
    const auto* one = find("BM_SequenceSmallImages/1/1/");
    const auto* many = find("BM_SequenceSmallImages/120/1/");
    const auto* oneHostOnly = find("BM_SequenceSmallImages/1/0/");
    const auto* manyHostOnly = find("BM_SequenceSmallImages/120/0/");
    // One figure per line, "name: value", for scripts that compare runs.
    std::cout << "\n";
    const double megabytes = kSequenceBytes / 1e6;
    const auto rate = [&](const auto& run) { return megabytes / secondsPerIteration(run); };
    if (recycled) std::cout << "recycled sequence, MB/s: " << rate(*recycled) << "\n";
    if (first) std::cout << "first-set sequence, MB/s: " << rate(*first) << "\n";
    if (cold) std::cout << "cold memcpy, MB/s: " << rate(*cold) << "\n";
    if (warm) std::cout << "warm memcpy, MB/s: " << rate(*warm) << "\n";
    if (recycled && cold) std::cout << "recycled sequence / cold memcpy: " << rate(*recycled) / rate(*cold) << "\n";
    if (recycled && warm) std::cout << "recycled sequence / warm memcpy: " << rate(*recycled) / rate(*warm) << "\n";
    if (first && cold) {
        std::cout << "first-set sequence / cold memcpy: " << rate(*first) / rate(*cold) << "\n";
        // With the prefault its start made: the cost moved, not taken away.
        const double withStart = secondsPerIteration(*first) + counter(*first, "start_us") * 1e-6;
        std::cout << "first-set sequence with its start / cold memcpy: "
                  << megabytes / withStart / rate(*cold) << "\n";
    }
    if (recycled) std::cout << "worker minor faults, recycled set: " << counter(*recycled, "worker_minflt") << "\n";
    if (first) std::cout << "worker minor faults, first set: " << counter(*first, "worker_minflt") << "\n";
    if (recycled) std::cout << "start, recycled set, us: " << counter(*recycled, "start_us") << "\n";
    if (first) std::cout << "start, first set, us: " << counter(*first, "start_us") << "\n";
    if (warm) std::cout << "one image copy, warm, us: " << secondsPerIteration(*warm) / kImages * 1e6 << "\n";
    if (tenGigE) {
        std::cout << "10GigE camera, MB/s: " << counter(*tenGigE, "camera_MBps") << "\n"
                  << "10GigE worker lag at the last image, us: " << counter(*tenGigE, "lag_us") << "\n"
                  << "10GigE worker lag at the last image, worst, us: " << counter(*tenGigE, "lag_max_us") << "\n"
                  << "finish latency after the last image, us: " << counter(*tenGigE, "finish_us") << "\n"
                  << "finish latency after the last image, worst, us: " << counter(*tenGigE, "finish_max_us")
                  << "\n"
                  << "worker minor faults, 10GigE: " << counter(*tenGigE, "worker_minflt") << "\n";
    }
    const auto perImage = [&](const auto& small, const auto& large) {
        return (secondsPerIteration(large) - secondsPerIteration(small)) / (kImages - 1) * 1e6;
    };
    if (oneHostOnly && manyHostOnly)
        std::cout << "per-image overhead besides the copy, host time only, us: " << perImage(*oneHostOnly, *manyHostOnly)
                  << "\n";
    if (one && many)
        std::cout << "per-image overhead besides the copy, with frame records, us: " << perImage(*one, *many) << "\n"
                  << "worker allocations per image: "
                  << (counter(*many, "worker_allocs_per_set") - counter(*one, "worker_allocs_per_set")) / (kImages - 1)
                  << "\n"
                  << "sequence start+finish of one small image, us: " << secondsPerIteration(*one) * 1e6 << "\n";
    benchmark::Shutdown();
    return 0;
}
