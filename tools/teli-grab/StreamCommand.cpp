#include <boost/format.hpp>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "CameraChecks.h"
#include "Commands.h"
#include "ContinuousGrab.h"
#include "ImageWaiter.h"
#include "Progress.h"
#include "Session.h"
#include "SetReport.h"
#include "Timeout.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

using Clock = std::chrono::steady_clock;

struct StreamOptions {
    double seconds = 5.0;
    Timeout timeout;
    int maxFailures = 3;
};

struct Tally {
    long frames = 0;
    // Frames the camera numbered that never arrived; -1 while its numbers are unknown.
    long missing = -1;
    std::optional<Tavri::ImageRecord> previous;
    long failures = 0;
    int consecutive = 0;
    std::map<std::string, long> byCause;
    std::string lastCause;

    void arrived(const Tavri::ImageRecord& record) {
        ++frames;
        consecutive = 0;
        if (record.frameNumber == Tavri::ImageRecord::kUnknown) return;
        if (missing < 0) missing = 0;
        if (previous) missing += static_cast<long>(framesMissedBetween(*previous, record));
        previous = record;
    }
    std::string missingText() const {
        return missing < 0 ? "" : (boost::format("%d missing by frame number, ") % missing).str();
    }

    void failed(const std::string& cause) {
        ++failures;
        ++consecutive;
        ++byCause[cause];
        lastCause = cause;
    }
    // "3 failures (2 x no image within 2000 ms; 1 x Failed to grab image from camera.)"
    std::string failureText() const {
        std::string text = (boost::format("%d failures") % failures).str();
        if (byCause.empty()) return text;
        std::string causes;
        for (const auto& [cause, count] : byCause)
            causes += (causes.empty() ? "" : "; ") + (boost::format("%d x %s") % count % cause).str();
        return text + " (" + causes + ")";
    }
};

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double rate(long frames, double seconds) { return seconds > 0 ? frames / seconds : 0.0; }

void printSummary(const std::string& label, const Tally& tally, double elapsed, const char* ending) {
    std::cout << boost::format("%sstream: %d frames in %.2f s, %.2f fps, %s%s%s\n") % label % tally.frames % elapsed %
                     rate(tally.frames, elapsed) % tally.missingText() % tally.failureText() % ending;
}

// `label` heads the summary ("" for one camera; progress is shown for one camera only).
void stream(Tavri::CameraDriver& camera, const StreamOptions& options, const std::string& label = "") {
    cv::Mat frame = ContinuousGrab::frameFor(camera);
    const auto mode = camera.getMode();
    const auto& records = recordSource(camera);
    ImageWaiter waiter(camera, options.timeout);
    Tally tally;
    Progress progress(label.empty());
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    // A lost camera or a signal ends the loop; the summary is printed before it leaves.
    std::optional<ToolError> ended;
    double elapsed = 0.0;
    {
        ContinuousGrab grab(camera);
        try {
            for (;;) {
                const auto result = waiter.next(frame, deadline, tally.frames);
                if (result == ImageWaiter::Result::Deadline) break;
                if (result == ImageWaiter::Result::Image) {
                    refuseWrongSize(records.lastImageRecord(), mode, frame);
                    tally.arrived(records.lastImageRecord());
                } else {
                    tally.failed(waiter.cause());
                    if (tally.consecutive >= options.maxFailures) break;
                }
                progress.show([&] {
                    const double now = secondsSince(start);
                    return (boost::format("frames %7d  fps %7.2f  missing %5d  failures %5d") % tally.frames %
                            rate(tally.frames, now) % std::max(tally.missing, 0L) % tally.failures)
                        .str();
                });
            }
        } catch (const ToolError& error) {
            ended = error;
        }
        // Measured before the stop: releasing a lost camera may take long.
        elapsed = secondsSince(start);
    }
    progress.finish();
    if (ended) {
        printSummary(label, tally, elapsed,
                     ended->code() == ExitCode::CameraDisconnected ? " (camera disconnected)"
                     : ended->code() == ExitCode::Terminated       ? " (terminated)"
                                                                   : " (interrupted)");
        throw *ended;
    }
    printSummary(label, tally, elapsed, "");
    if (tally.consecutive >= options.maxFailures) {
        const auto advice = waiter.advice();
        throw ToolError(ExitCode::DriverError, (boost::format("stopped after %d failures in a row; the last: %s%s") %
                                                tally.consecutive % tally.lastCause %
                                                (advice.empty() ? "" : "; " + advice))
                                                   .str());
    }
    if (tally.frames == 0) {
        const auto hint = triggerHint(camera);
        throw ToolError(ExitCode::DriverError,
                        (boost::format("no image arrived in %.2f s%s") % elapsed % (hint.empty() ? "" : ": " + hint)).str());
    }
}

// Each camera streams on a thread of its own, one camera object each, and tells its
// own frames per second; the first camera's failure (by the order given) ends the
// command once all have stopped.
void streamAll(const std::vector<Session::OpenCamera>& cameras, const StreamOptions& options) {
    if (cameras.size() == 1) return stream(*cameras.front().driver, options);
    std::vector<std::exception_ptr> errors(cameras.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < cameras.size(); ++i)
        threads.emplace_back([&, i] {
            try {
                stream(*cameras[i].driver, options, cameras[i].serial + " ");
            } catch (...) {
                errors[i] = std::current_exception();
            }
        });
    for (auto& thread : threads) thread.join();
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        if (!errors[i]) continue;
        try {
            std::rethrow_exception(errors[i]);
        } catch (const ToolError& error) {
            throw ToolError(error.code(), cameras[i].serial + ": " + error.what());
        }
    }
}

}  // namespace

void addStreamCommand(CLI::App& app, const GlobalOptions& options) {
    auto settings = std::make_shared<StreamOptions>();
    auto* command = app.add_subcommand("stream", "Grab continuously, showing frames, fps and failures as it runs");
    command->add_option("--seconds", settings->seconds, "how long to stream, in seconds (up to one day)")
        ->capture_default_str()
        ->check(finiteNumber() & CLI::Range(0.001, 86400.0));
    addTimeoutOption(*command, settings->timeout, "longest wait for one image");
    command->add_option("--max-failures", settings->maxFailures,
                        "end the stream after this many failed images in a row")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    command->callback([&options, settings] {
        withSession(options, [&](Session& session) { streamAll(session.openAll(), *settings); });
    });
}

}  // namespace TeliGrab
