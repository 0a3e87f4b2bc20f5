#include <algorithm>
#include <boost/format.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "CameraChecks.h"
#include "Commands.h"
#include "ContinuousGrab.h"
#include "DriverLogTap.h"
#include "FrameSaver.h"
#include "ImageFile.h"
#include "ImageWaiter.h"
#include "Progress.h"
#include "Session.h"
#include "SetReport.h"
#include "Timeout.h"
#include "ToolError.h"
#include "sdk/StreamFigures.h"

namespace TeliGrab {

namespace {

using Clock = std::chrono::steady_clock;

struct StreamOptions {
    double seconds = 5.0;
    Timeout timeout;
    int maxFailures = 3;
    std::string directory;  // with --every: where every k-th frame goes
    int every = 0;
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

// The images' bytes per second, in millions, as Aravis's tools count them.
double megabytesPerSecond(long frames, const cv::Mat& frame, double seconds) {
    return rate(frames, seconds) * static_cast<double>(frame.total() * frame.elemSize()) / 1e6;
}

void printSummary(const std::string& label, const Tally& tally, const cv::Mat& frame, double elapsed,
                  const std::string& ending) {
    std::cout << boost::format("%sstream: %d frames in %.2f s, %.2f fps, %.2f MB/s, %s%s%s\n") % label % tally.frames %
                     elapsed % rate(tally.frames, elapsed) % megabytesPerSecond(tally.frames, frame, elapsed) %
                     tally.missingText() % tally.failureText() % ending;
}

// The backend's figures of the acquisition, from the line it logs when acquisition stops,
// told as packet loss when packets went missing; else empty.
std::string packetLossText(const std::vector<std::string>& logged) {
    for (const auto& line : logged) {
        const auto figures = Tavri::StreamFigures::fromLine(line);
        if (figures && figures->missingPackets)
            return (boost::format("packet loss: %d frames complete, %d incomplete; %d packets missing, %d resent") %
                    figures->completed % figures->failures % figures->missingPackets % figures->resentPackets)
                .str();
    }
    return {};
}

// What cut the stream short, for its summary line.
const char* endingOf(ExitCode code) {
    switch (code) {
    case ExitCode::CameraDisconnected: return " (camera disconnected)";
    case ExitCode::Terminated: return " (terminated)";
    case ExitCode::Interrupted:
    case ExitCode::HungUp:
    case ExitCode::BrokenPipe: return " (interrupted)";
    default: return " (stopped)";
    }
}

// `serial` is given when several cameras stream: it heads the camera's lines and names
// its folder under DIR, and progress is shown for one camera only. `tap` holds the
// driver's failures, for the packet-loss figures.
void stream(Tavri::CameraDriver& camera, const StreamOptions& options, bool debayer, const DriverLogTap& tap,
            const std::string& serial = "") {
    const std::string label = serial.empty() ? "" : serial + " ";
    cv::Mat frame = ContinuousGrab::frameFor(camera);
    const auto mode = camera.getMode();
    const bool ownFolder = !serial.empty() && !options.directory.empty();
    FrameSaver saver(ownFolder ? (std::filesystem::path(options.directory) / serial).string() : options.directory,
                     options.every, mode, debayer);
    const auto& records = recordSource(camera);
    ImageWaiter waiter(camera, options.timeout);
    Tally tally;
    Progress progress(label.empty());
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    // A lost camera or a signal ends the loop; the summary is printed before it leaves.
    std::optional<ToolError> ended;
    double elapsed = 0.0;
    // The backend tells its stream's figures when acquisition stops.
    {
        ContinuousGrab grab(camera);
        try {
            for (;;) {
                const auto result = waiter.next(frame, deadline, tally.frames);
                if (result == ImageWaiter::Result::Deadline) break;
                if (result == ImageWaiter::Result::Image) {
                    refuseWrongSize(records.lastImageRecord(), mode, frame);
                    saver.offer(frame, tally.frames);
                    tally.arrived(records.lastImageRecord());
                } else {
                    tally.failed(waiter.cause());
                    if (tally.consecutive >= options.maxFailures) break;
                }
                progress.show([&] {
                    const double now = secondsSince(start);
                    return (boost::format("frames %7d  fps %7.2f  MB/s %7.2f  missing %5d  failures %5d") %
                            tally.frames % rate(tally.frames, now) % megabytesPerSecond(tally.frames, frame, now) %
                            std::max(tally.missing, 0L) % tally.failures)
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
    // With several cameras, only the lines that name this one.
    auto logged = tap.failures();
    logged.erase(std::remove_if(logged.begin(), logged.end(),
                                [&](const std::string& line) { return line.find(serial) == std::string::npos; }),
                 logged.end());
    const auto loss = packetLossText(logged);
    if (!loss.empty()) std::cout << label << "stream: " << loss << '\n';
    if (ended) {
        printSummary(label, tally, frame, elapsed, saver.savedText() + endingOf(ended->code()));
        throw *ended;
    }
    printSummary(label, tally, frame, elapsed, saver.savedText());
    if (tally.consecutive >= options.maxFailures) {
        const auto advice = waiter.advice();
        throw ToolError(ExitCode::DriverError, (boost::format("stopped after %d failures in a row; the last: %s%s%s") %
                                                tally.consecutive % tally.lastCause %
                                                (advice.empty() ? "" : "; " + advice) % (loss.empty() ? "" : "; " + loss))
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
void streamAll(const std::vector<Session::OpenCamera>& cameras, const StreamOptions& options, bool debayer) {
    // One tap for all: taps installed and removed by several threads would restore each
    // other's loggers out of order.
    DriverLogTap tap;
    if (cameras.size() == 1) return stream(*cameras.front().driver, options, debayer, tap);
    std::vector<std::exception_ptr> errors(cameras.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < cameras.size(); ++i)
        threads.emplace_back([&, i] {
            try {
                stream(*cameras[i].driver, options, debayer, tap, cameras[i].serial);
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
    auto* directory = command->add_option("-o,--output", settings->directory, "with --every: folder for the frames");
    command->add_option("--every", settings->every, "save every K-th frame as DIR/frame_000000.png ... (frame 0, K, 2K ...)")
        ->check(CLI::Range(1, 1000000000))
        ->needs(directory);
    directory->needs("--every");
    command->callback([&options, settings] {
        if (settings->every > 0) checkOutputDirectory(settings->directory);
        withSession(options, [&](Session& session) { streamAll(session.openAll(), *settings, options.debayer); });
    });
}

}  // namespace TeliGrab
