#include <boost/format.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>

#include "CameraChecks.h"
#include "Commands.h"
#include "ContinuousGrab.h"
#include "ImageFile.h"
#include "ImageOutput.h"
#include "ImageWaiter.h"
#include "Interrupt.h"
#include "Progress.h"
#include "Session.h"
#include "Timeout.h"
#include "SetReport.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

using Clock = std::chrono::steady_clock;

// The driver's request pool: the longest sequence it takes.
constexpr int kMaxImages = 120;

double millisecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

struct SequenceOptions {
    int count = 0;
    std::string directory;
    bool perImageTimes = false;
    bool keepPartial = false;
    double triggerRate = 0.0;
    std::string format = "png";
    Timeout timeout;
};

// The images that arrived; `failure` says why the set is not whole (fewer images than
// asked for, or images that answer other triggers), `code` how the tool ends then.
// `broken` marks the images that do not show their own pattern; `report` is what goes
// to sequence.json.
struct Collected {
    std::vector<cv::Mat> images;
    Tavri::ImageType mode = Tavri::ImageType::Raw;
    std::string failure;
    ExitCode code = ExitCode::DriverError;
    std::vector<bool> broken;
    nlohmann::ordered_json report;
};

// The driver's hardware-triggered sequence. The set arrives whole at the finish, so
// only the time from start to finish can be measured, not each image's arrival. The
// finish runs beside this thread so that the wait can show progress and hear a signal;
// the driver's worker cannot be cut short, but it ends within 500 ms of the last image.
std::shared_ptr<Tavri::ImageSet> runSequence(Tavri::CameraDriver& camera, int count) {
    camera.startGrabSequenceAsync(count);
    auto finishing = std::async(std::launch::async, [&camera] { return camera.finishGrabSequenceAsync(); });
    const auto start = Clock::now();
    Progress progress;
    bool told = false;
    while (finishing.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        if (interruptSignal() != 0 && !told) {
            progress.finish();
            std::cerr << "teli-grab: stopping: waiting for the driver's sequence to end (within 500 ms of the last "
                         "image; a second signal quits at once)\n";
            told = true;
        }
        progress.show([&] {
            // Short enough for a narrow terminal: a wrapped line cannot be rewritten.
            return (boost::format("sequence: %.1f s waiting for %d triggered images") %
                    (millisecondsBetween(start, Clock::now()) / 1000.0) % count)
                .str();
        });
    }
    progress.finish();
    return finishing.get();
}

// Runs `step`; a lost camera ends the set with its own cause and code rather than
// throwing, so that the images that arrived stay for --keep-partial. False then.
template <typename Step>
bool unlessDisconnected(Collected& collected, Step&& step) {
    try {
        step();
        return true;
    } catch (const ToolError& lost) {
        if (lost.code() != ExitCode::CameraDisconnected) throw;
        collected.failure = lost.what();
        collected.code = lost.code();
        return false;
    }
}

Collected collectSequence(Tavri::CameraDriver& camera, int count, double triggerRate) {
    // Read before the start: no other call may reach the camera while the sequence runs.
    const auto hint = triggerHint(camera);
    const auto start = Clock::now();
    std::shared_ptr<Tavri::ImageSet> set;
    try {
        set = runSequence(camera, count);
    } catch (const std::exception&) {
        // The stream of a camera that is gone cannot be stopped, which fails the finish;
        // the images that came before are still the set's, and the loss is told below.
        throwIfInterrupted();
        if (camera.isConnected()) throw;
        set = recordSource(camera).sequenceSet();
    }
    const auto finish = Clock::now();
    throwIfInterrupted();
    if (!set || set->images.size() != static_cast<std::size_t>(count))
        throw ToolError(ExitCode::DriverError,
                        (boost::format("the driver returned %d images for a sequence of %d") %
                         (set ? set->images.size() : 0) % count)
                            .str());

    const Tavri::SetVerdict verdict = judgeFinishedSet(camera, *set, triggerRate);
    const auto& records = recordSource(camera).sequenceRecords();
    // Slots from a failed or missing image on hold no image of this set.
    int arrived = 0;
    while (arrived < static_cast<int>(records.images.size()) && records.images[arrived].status == 0) ++arrived;

    Collected collected{{}, set->mode, {}, ExitCode::DriverError, brokenImages(verdict, arrived), setReport(records, verdict)};
    if (!verdict.whole()) {
        const bool endedOnly = std::all_of(verdict.problems.begin(), verdict.problems.end(), [](const auto& p) {
            return p.cause == Tavri::SetProblemCause::EndedEarly;
        });
        const bool waitedInVain = records.endedBecause == ImageWaitFailed;
        collected.failure = endedOnly ? "sequence " + verdict.problems.front().detail
                                      : "set not whole: " + verdict.describe();
        // Advice to let the camera run free fits a camera that saw no trigger at all,
        // not one whose trigger stopped or came late.
        if (waitedInVain && arrived == 0 && !hint.empty()) collected.failure += "; " + hint;
        if (!endedOnly) collected.code = ExitCode::SetNotWhole;
    }
    // Copies: the set's pixel block is released by code in the plug-in.
    for (int i = 0; i < arrived; ++i) collected.images.push_back(set->images[static_cast<std::size_t>(i)].clone());
    if (arrived < count) unlessDisconnected(collected, [&] { throwIfDisconnected(camera, arrived); });

    const double elapsed = millisecondsBetween(start, finish);
    std::cout << boost::format("sequence: %d of %d images in %.1f ms from start to finish, %.2f fps\n") % arrived %
                     count % elapsed % (arrived * 1000.0 / elapsed);
    std::cout << "verdict: " << verdict.describe() << "\n";
    return collected;
}

// The same count through continuous grabbing, timing each image as it arrives.
Collected collectTimed(Tavri::CameraDriver& camera, int count, const Timeout& timeout) {
    Collected collected;
    collected.mode = camera.getMode();
    std::vector<double> arrivals;
    {
        const cv::Mat prototype = ContinuousGrab::frameFor(camera);
        ImageWaiter waiter(camera, timeout);
        ContinuousGrab grab(camera);
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i) {
            cv::Mat frame(prototype.size(), prototype.type());
            auto result = ImageWaiter::Result::Failed;
            if (!unlessDisconnected(collected, [&] { result = waiter.next(frame, Clock::time_point::max(), i); }))
                break;
            if (result != ImageWaiter::Result::Image) {
                const auto advice = waiter.advice();
                collected.failure = (boost::format("sequence ended after %d of %d images: %s%s") % i % count %
                                     waiter.cause() % (advice.empty() ? "" : "; " + advice))
                                        .str();
                break;
            }
            arrivals.push_back(millisecondsBetween(start, Clock::now()));
            collected.images.push_back(frame);
        }
    }
    std::cout << "image  arrival ms  interval ms\n";
    for (std::size_t i = 0; i < arrivals.size(); ++i)
        std::cout << boost::format("%5d  %10.1f  %11.1f\n") % i % arrivals[i] %
                         (i ? arrivals[i] - arrivals[i - 1] : arrivals[i]);
    if (!arrivals.empty())
        std::cout << boost::format("sequence: %d of %d images in %.1f ms after the start, %.2f fps\n") %
                         arrivals.size() % count % arrivals.back() % (arrivals.size() * 1000.0 / arrivals.back());
    return collected;
}

void writeAll(const Collected& collected, const std::string& directory, ImageFormat format, bool debayer) {
    if (!collected.report.is_null()) writeSetReport(directory, collected.report);
    if (collected.images.empty()) return;
    createOutputDirectory(directory);
    const auto extension = extensionOf(format);
    const auto fileName = [&](const std::string& stem) {
        return (std::filesystem::path(directory) / (stem + extension)).lexically_normal().string();
    };
    std::vector<cv::Mat> prepared;
    Progress progress;
    const auto total = collected.images.size();
    for (std::size_t i = 0; i < total; ++i) {
        throwIfInterrupted();
        progress.show([&] { return (boost::format("writing images: %d of %d") % (i + 1) % total).str(); });
        prepared.push_back(forFile(collected.images[i], collected.mode, debayer));
        writeImage(fileName((boost::format("image_%03d") % i).str()), prepared.back());
    }
    throwIfInterrupted();
    writeImage(fileName("contact_sheet"), contactSheet(prepared, 240, collected.broken));
    progress.finish();
    std::cout << boost::format("wrote %d images (%d x %d): %s ... and the contact sheet %s\n") % total %
                     collected.images.front().cols % collected.images.front().rows % fileName("image_000") %
                     fileName("contact_sheet");
}

void run(Session& session, const SequenceOptions& settings, ImageFormat format, bool debayer) {
    auto& camera = session.open();
    auto collected = settings.perImageTimes ? collectTimed(camera, settings.count, settings.timeout)
                                            : collectSequence(camera, settings.count, settings.triggerRate);
    if (collected.failure.empty()) {
        writeAll(collected, settings.directory, format, debayer);
        return;
    }
    const auto kept = collected.images.size();
    // The record of what went wrong is written whatever else is.
    if (!settings.keepPartial) collected.images.clear();
    writeAll(collected, settings.directory, format, debayer);
    const char* const written = settings.keepPartial ? "; %d images kept (--keep-partial)"
                                : kept == 0             ? ""
                                                        : "; no images written (--keep-partial writes the %d that arrived)";
    throw ToolError(collected.code, collected.failure + (*written ? (boost::format(written) % kept).str() : ""));
}

}  // namespace

void addSequenceCommand(CLI::App& app, const GlobalOptions& options) {
    auto settings = std::make_shared<SequenceOptions>();
    auto* command = app.add_subcommand(
        "sequence", "Take a hardware-triggered sequence of N images; write DIR/image_000.png ... and DIR/contact_sheet.png");
    command->add_option("count", settings->count, "number of images, 1 to 120")
        ->required()
        ->check(CLI::Range(1, kMaxImages));
    command->add_option("-o,--output", settings->directory, "directory for the image files")->required();
    command->add_option("--format", settings->format, "image file format: png, jpeg or tiff")
        ->capture_default_str()
        ->check(CLI::IsMember({"png", "jpeg", "tiff"}));
    auto* perImageTimes = command->add_flag("--per-image-times", settings->perImageTimes,
                      "collect through continuous grabbing instead, timing each image's arrival");
    command->add_flag("--keep-partial", settings->keepPartial,
                      "when the sequence ends early, write the images that did arrive (the exit code still says it "
                      "failed)");
    command->add_option("--trigger-rate", settings->triggerRate,
                        "the projector's pulses per second, when known: the set's intervals are judged by it "
                        "rather than by their median")
        ->check(finiteNumber() & CLI::PositiveNumber);
    // The driver's sequence waits 500 ms for each image, whatever the host wants.
    addTimeoutOption(*command, settings->timeout, "with --per-image-times: longest wait for one image")
        ->needs(perImageTimes);
    command->callback([&options, settings] {
        const auto format = formatNamed(settings->format);
        checkOutputDirectory(settings->directory);
        withSession(options, [&](Session& session) { run(session, *settings, format, options.debayer); });
    });
}

}  // namespace TeliGrab
