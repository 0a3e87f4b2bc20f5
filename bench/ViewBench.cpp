// teli-grab view's frame path: the time to turn one 1920 x 1200 frame of the simulated rig
// into the JPEG a viewer receives, per colour mode and view (scaled to a window, or a
// 1:1 region), and the rate at which frames reach one HTTP viewer of the live stream,
// printed beside the rate the camera delivered in the same run.
// The plug-in is loaded as teli-grab loads it; the rig renders its scene in real time.

#include <benchmark/benchmark.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>

#include "Session.h"
#include "view/CameraLoop.h"
#include "view/FrameAnalysis.h"
#include "view/FrameHub.h"
#include "view/FrameView.h"
#include "view/ViewServer.h"
#include "view/ViewedCamera.h"

namespace TeliGrab::View {
namespace {

constexpr int kJpegQuality = 80;

GlobalOptions simOptions(const std::string& mode) {
    GlobalOptions options;
    options.sdk = "sim";
    options.mode = mode;
    options.logLevel = "3";
    return options;
}

// One grabbed frame per colour mode, taken once for the whole run.
const std::map<std::string, std::pair<cv::Mat, Tavri::ImageType>>& sampleFrames() {
    static const auto frames = [] {
        std::map<std::string, std::pair<cv::Mat, Tavri::ImageType>> taken;
        for (const char* mode : {"gray", "color", "raw"}) {
            const auto options = simOptions(mode);
            withSession(options, [&](Session& session) {
                auto& camera = session.open();
                taken[mode] = {camera.grab().clone(), camera.getMode()};
            });
        }
        return taken;
    }();
    return frames;
}

// What a stream does for every frame it sends; the time per iteration is the encode
// time per frame. The window is the page's canvas at 1440 x 900 minus its side panel.
void BM_EncodeFrame(benchmark::State& state, const char* mode, const char* fit, const char* region,
                    bool markSaturated) {
    const auto& [image, type] = sampleFrames().at(mode);
    const RawFrame frame{image, type, 1};
    const auto view = parseViewRequest(fit, region);
    std::size_t bytes = 0;
    for (auto _ : state) bytes = encodeJpeg(renderView(frame, view, markSaturated), kJpegQuality).size();
    state.counters["jpeg_kB"] = bytes / 1024.0;
    state.SetLabel(std::string(mode) + " " + (*fit ? fit : *region ? region : "full"));
}
BENCHMARK_CAPTURE(BM_EncodeFrame, gray_full, "gray", "", "", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EncodeFrame, gray_fit, "gray", "1080x870", "", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EncodeFrame, gray_fit_marked, "gray", "1080x870", "", true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EncodeFrame, gray_zoom, "gray", "", "420,165,1080,870", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EncodeFrame, raw_fit, "raw", "1080x870", "", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EncodeFrame, color_fit, "color", "1080x870", "", false)->Unit(benchmark::kMillisecond);

// The histogram and saturated share the status request computes.
void BM_AnalyseFrame(benchmark::State& state) {
    const auto& image = sampleFrames().at("gray").first;
    for (auto _ : state) benchmark::DoNotOptimize(analyse(image).saturatedShare);
}
BENCHMARK(BM_AnalyseFrame)->Unit(benchmark::kMillisecond);

// Counts the JPEG parts of the live stream as one viewer receives them.
class StreamCounter {
public:
    bool receive(const char* data, std::size_t size) {
        // Parts are told apart by their headers, which the JPEG bytes never contain.
        static const std::string marker = "X-Frame-Stamp: ";
        tail_.append(data, size);
        for (auto at = tail_.find(marker); at != std::string::npos; at = tail_.find(marker, at + 1)) ++parts_;
        // Keep what could be the start of a marker cut by the chunk's end, never a whole one.
        const std::size_t keep = marker.size() - 1;
        tail_.erase(0, tail_.size() > keep ? tail_.size() - keep : 0);
        bytes_ += size;
        return std::chrono::steady_clock::now() < until_;
    }
    void runFor(std::chrono::seconds seconds) { until_ = std::chrono::steady_clock::now() + seconds; }
    long parts() const { return parts_; }
    std::size_t bytes() const { return bytes_; }

private:
    std::string tail_;
    long parts_ = 0;
    std::size_t bytes_ = 0;
    std::chrono::steady_clock::time_point until_;
};

// The whole path: camera thread, HTTP server, one viewer of a 1080 x 870 window on
// loopback (the page's canvas at 1440 x 900).
void BM_DeliveredRate(benchmark::State& state) {
    constexpr auto kSeconds = std::chrono::seconds(5);
    for (auto _ : state) {
        FrameHub* hub = nullptr;  // set before the port is
        std::atomic<bool> stop{false};
        std::atomic<int> port{0};
        CameraStats cameraAtStart, cameraAtEnd;
        std::atomic<bool> measuring{false};
        std::string failure;

        const auto options = simOptions("gray");
        std::thread camera([&] {
            try {
                withSession(options, [&](Session& session) {
                    ViewServer server({"127.0.0.1", 0}, "");
                    ViewedCamera viewed("camera", session.open());
                    auto& loop = viewed.loop;
                    hub = &viewed.hub;
                    server.start({&viewed});
                    port = server.port();
                    bool wasMeasuring = false;
                    loop.run([&] {
                        // The camera's own count, read on its thread when the window opens and closes.
                        if (measuring != wasMeasuring) {
                            (measuring ? cameraAtStart : cameraAtEnd) = loop.stats();
                            wasMeasuring = measuring;
                        }
                        return stop.load();
                    });
                    viewed.hub.stop();
                    server.stop();
                });
            } catch (const std::exception& error) {
                failure = error.what();
                port = -1;
            }
        });
        while (port == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (port < 0) {
            camera.join();
            state.SkipWithError(failure.c_str());
            return;
        }

        httplib::Client client("127.0.0.1", port);
        StreamCounter counter;
        const auto before = hub->counters();
        counter.runFor(kSeconds);
        measuring = true;
        const auto start = std::chrono::steady_clock::now();
        client.Get("/stream?fit=1080x870", [&](const char* data, std::size_t size) { return counter.receive(data, size); });
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        measuring = false;
        const auto after = hub->counters();
        std::this_thread::sleep_for(std::chrono::milliseconds(2 * CameraLoop::kWaitMs));
        stop = true;
        camera.join();

        const double cameraRate = (cameraAtEnd.frames - cameraAtStart.frames) / elapsed.count();
        const double delivered = counter.parts() / elapsed.count();
        const auto encoded = after.encoded - before.encoded;
        state.counters["camera_fps"] = cameraRate;
        state.counters["delivered_fps"] = delivered;
        state.counters["delivered_per_camera_frame"] = cameraRate > 0 ? delivered / cameraRate : 0.0;
        state.counters["encode_ms"] = encoded ? 1e3 * (after.encodeSeconds - before.encodeSeconds) / encoded : 0.0;
        state.counters["MB_per_s"] = counter.bytes() / elapsed.count() / 1e6;
        state.counters["camera_failures"] = static_cast<double>(cameraAtEnd.failures);
    }
}
BENCHMARK(BM_DeliveredRate)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace TeliGrab::View

BENCHMARK_MAIN();
