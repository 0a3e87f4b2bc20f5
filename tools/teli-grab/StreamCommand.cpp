#include <boost/format.hpp>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>

#include "Commands.h"
#include "ContinuousGrab.h"
#include "Session.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t interrupted = 0;
extern "C" void onInterrupt(int) { interrupted = 1; }

// Ctrl-C ends the stream cleanly, so acquisition is stopped and the camera released.
class InterruptGuard {
public:
    InterruptGuard() : previous_(std::signal(SIGINT, onInterrupt)) { interrupted = 0; }
    ~InterruptGuard() { std::signal(SIGINT, previous_); }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    void (*previous_)(int);
};

struct StreamOptions {
    double seconds = 5.0;
    int timeoutMs = 2000;
};

struct Tally {
    long frames = 0;
    long failures = 0;
    std::string lastFailure;
};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void showProgress(const Tally& tally, double elapsed) {
    std::cerr << boost::format("\rframes %7d  fps %7.2f  failures %5d") % tally.frames %
                     (elapsed > 0 ? tally.frames / elapsed : 0.0) % tally.failures
              << std::flush;
}

void stream(Tavri::CameraDriver& camera, const StreamOptions& options) {
    cv::Mat frame = ContinuousGrab::frameFor(camera);
    Tally tally;
    InterruptGuard interruptGuard;
    double elapsed = 0.0;
    {
        ContinuousGrab grab(camera);
        const auto start = Clock::now();
        auto lastShown = start;
        while (!interrupted && (elapsed = secondsSince(start)) < options.seconds) {
            try {
                camera.getNextImage(frame, options.timeoutMs);
                ++tally.frames;
            } catch (const std::exception& error) {
                ++tally.failures;
                tally.lastFailure = error.what();
            }
            if (Clock::now() - lastShown >= std::chrono::milliseconds(100)) {
                showProgress(tally, secondsSince(start));
                lastShown = Clock::now();
            }
        }
        elapsed = secondsSince(start);
        showProgress(tally, elapsed);
        std::cerr << '\n';
    }
    std::cout << boost::format("stream: %d frames in %.2f s, %.2f fps, %d failures%s\n") % tally.frames % elapsed %
                     (elapsed > 0 ? tally.frames / elapsed : 0.0) % tally.failures %
                     (interrupted ? " (interrupted)" : "");
    if (tally.frames == 0)
        throw ToolError(ExitCode::DriverError,
                        (boost::format("no image arrived in %.2f s%s") % elapsed %
                         (tally.lastFailure.empty() ? "" : "; last failure: " + tally.lastFailure))
                            .str());
}

}  // namespace

void addStreamCommand(CLI::App& app, const GlobalOptions& options) {
    auto settings = std::make_shared<StreamOptions>();
    auto* command = app.add_subcommand("stream", "Grab continuously, showing frames, fps and failures as it runs");
    command->add_option("--seconds", settings->seconds, "how long to stream")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    command->add_option("--timeout", settings->timeoutMs, "wait per image, ms")->capture_default_str();
    command->callback([&options, settings] {
        withSession(options, [&](Session& session) { stream(session.open(), *settings); });
    });
}

}  // namespace TeliGrab
