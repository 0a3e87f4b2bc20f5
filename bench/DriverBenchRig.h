#pragma once
// driver_bench's rig: the cameras it measures, kept open for the whole run, and the
// logger that marks the worker's image loop.

#include <sys/resource.h>

#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Logger.h"
#include "bench/AllocationCounter.h"
#include "bench/PacedSdk.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::bench {

using Clock = std::chrono::steady_clock;

constexpr int kImages = 120;
constexpr std::size_t kFullWidth = 1920, kFullHeight = 1200;
constexpr std::size_t kSequenceBytes = kImages * kFullWidth * kFullHeight;
// A 10GigE camera: 1.2 GB/s of full-size Mono8 images.
constexpr std::chrono::nanoseconds kTenGigEPeriod{kFullWidth * kFullHeight * 1000 / 1200};

inline double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

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

}  // namespace Tavri::bench
