// Frame rate of a stream through our Aravis backend against arv-camera-test-0.8, on
// the same fake GigE camera (the fixture at 1920x1200 Mono8, 9000-byte packets), in
// one run, one after the other. Both count completed frames over the same duration.
// Run it through tests/gige/run-in-netns.sh (the target run_gige_stream_benchmark).

#include <benchmark/benchmark.h>
#include <net/if.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "sdk/Backends.h"
#include "sdk/TeliSdk.h"

namespace {

using namespace Tavri;

constexpr std::uint32_t kWidth = 1920, kHeight = 1200;
constexpr int kRequests = 32;
constexpr double kSeconds = 4.0;
constexpr const char* kPacketSize = "9000";

double backendFps = 0.0;
double referenceFps = 0.0;

std::string fixtureSerial() {
    const char* serial = std::getenv("TAVRI_GIGE_FIXTURE_SERIAL");
    return serial ? serial : "TAVRI-FIX";
}

// Frames our backend delivers in kSeconds of free run, each taken and requeued as
// the driver's continuous grab does.
double backendStream(benchmark::State& state) {
    ::setenv("TAVRI_ARAVIS_PACKET_SIZE", kPacketSize, 1);
    auto sdk = aravis::makeSdk();
    sdk->sdkInitialize(65535);
    std::uint32_t count = 0;
    sdk->sdkGetCameraCount(&count);
    CameraHandle camera = nullptr;
    for (std::uint32_t i = 0; i < count && !camera; ++i) {
        CameraInfoRecord record;
        record.clear();
        if (sdk->sdkGetCameraInfo(nullptr, i, &record) == 0 && record.serialNumber() == fixtureSerial())
            sdk->sdkOpenCamera(i, &camera, nullptr, true, nullptr, 1);
    }
    if (!camera) {
        state.SkipWithError("fixture camera not found");
        return 0.0;
    }
    sdk->sdkSetWidth(camera, kWidth);
    sdk->sdkSetHeight(camera, kHeight);
    sdk->sdkSetPixelFormat(camera, PixelFormat::Mono8);
    sdk->sdkSetTriggerMode(camera, false);

    EventHandle event = platform::createEvent();
    std::uint32_t payload = 0;
    StreamHandle stream = nullptr;
    std::vector<std::uint8_t> block;
    std::vector<RequestHandle> requests(kRequests);
    double fps = 0.0;
    if (sdk->sdkOpenStream(camera, event, &payload, &stream, 0) == 0) {
        block.resize(std::size_t{payload} * kRequests);
        for (int i = 0; i < kRequests; ++i) {
            sdk->sdkCreateRequest(stream, block.data() + std::size_t{payload} * i, payload, &requests[i]);
            sdk->sdkEnqueueRequest(stream, requests[i]);
        }
        long frames = 0;
        const auto start = std::chrono::steady_clock::now();
        const auto end = start + std::chrono::duration<double>(kSeconds);
        sdk->sdkStartStream(stream, 8);
        while (std::chrono::steady_clock::now() < end) {
            if (platform::waitForEvent(event, 1000) != 0) continue;
            RequestHandle request = nullptr;
            std::uint8_t* data = nullptr;
            std::uint32_t size = 0;
            if (sdk->sdkTakeCompletedRequest(stream, &request, &data, &size) == 0 && size == kWidth * kHeight) {
                benchmark::DoNotOptimize(data[size - 1]);
                ++frames;
            }
            if (request) sdk->sdkEnqueueRequest(stream, request);
        }
        fps = frames / kSeconds;
        sdk->sdkStopStream(stream);
        sdk->sdkFlushWaitQueue(stream);
        for (RequestHandle request : requests) sdk->sdkReleaseRequest(stream, request);
        sdk->sdkCloseStream(stream);
    } else {
        state.SkipWithError("stream did not open");
    }
    sdk->sdkCloseCamera(camera);
    platform::closeEvent(event);
    sdk->sdkTerminate();
    return fps;
}

// Frames arv-camera-test-0.8 completes in kSeconds on the same camera and settings.
double referenceStream(benchmark::State& state) {
    const std::string command = "timeout 30 arv-camera-test-0.8 -n Aravis-TavriFixture-" + fixtureSerial() +
                                " -w 1920 -h 1200 -f 1000 -i " + kPacketSize + " --duration " +
                                std::to_string(static_cast<int>(kSeconds)) + " 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe) {
        state.SkipWithError("cannot run arv-camera-test-0.8");
        return 0.0;
    }
    std::string output;
    char chunk[512];
    while (std::fgets(chunk, sizeof chunk, pipe.get())) output += chunk;
    std::smatch completed;
    if (!std::regex_search(output, completed, std::regex(R"(n_completed_buffers\s*=\s*(\d+))"))) {
        state.SkipWithError("arv-camera-test-0.8 reported no frame count");
        return 0.0;
    }
    return std::stod(completed[1]) / kSeconds;
}

void runTimed(benchmark::State& state, double (*stream)(benchmark::State&), double& fps) {
    for (auto _ : state) {
        fps = stream(state);
        state.SetIterationTime(kSeconds);
    }
    state.counters["fps"] = fps;
}

void BM_TavriAravisBackend(benchmark::State& state) { runTimed(state, backendStream, backendFps); }
void BM_ArvCameraTest(benchmark::State& state) { runTimed(state, referenceStream, referenceFps); }

BENCHMARK(BM_TavriAravisBackend)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(BM_ArvCameraTest)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

// GigE discovery broadcasts on every interface this process can reach.
bool loopbackOnly() {
    struct if_nameindex* names = ::if_nameindex();
    if (!names) return false;
    bool onlyLoopback = true;
    for (const struct if_nameindex* entry = names; entry->if_index != 0; ++entry)
        if (std::string(entry->if_name) != "lo") onlyLoopback = false;
    ::if_freenameindex(names);
    return onlyLoopback;
}

}  // namespace

int main(int argc, char** argv) {
    if (!loopbackOnly()) {
        std::fprintf(stderr, "run this through tests/gige/run-in-netns.sh: GigE discovery must stay in a "
                             "private network namespace\n");
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("1920x1200 Mono8, 9000-byte packets, %.0f s each\n", kSeconds);
    std::printf("our backend       : %8.1f frames/s\n", backendFps);
    std::printf("arv-camera-test   : %8.1f frames/s\n", referenceFps);
    if (referenceFps > 0.0) std::printf("ratio backend/arv-camera-test: %.3f\n", backendFps / referenceFps);
    return 0;
}
