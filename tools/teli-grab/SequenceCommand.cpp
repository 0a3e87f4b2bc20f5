#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
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
#include "SetReport.h"
#include "TavriAPI/SetMatch.h"
#include "Timeout.h"
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
    Tavri::SetVerdict verdict;
};

// The driver's hardware-triggered sequence on each camera: every camera is started
// before the first is finished, as a host arms every camera of a projector. A set
// arrives whole at the finish, so only the time from start to finish can be measured,
// not each image's arrival. The finishes run beside this thread so that the wait can
// show progress and hear a signal; the driver's worker cannot be cut short, but it
// ends within 500 ms of the last image.
std::vector<std::shared_ptr<Tavri::ImageSet>> runSequence(const std::vector<Tavri::CameraDriver*>& cameras, int count) {
    for (auto* camera : cameras) camera->startGrabSequenceAsync(count);
    auto finishing = std::async(std::launch::async, [&cameras] {
        std::vector<std::shared_ptr<Tavri::ImageSet>> sets;
        std::exception_ptr failed;
        for (auto* camera : cameras) {
            try {
                sets.push_back(camera->finishGrabSequenceAsync());
            } catch (const std::exception&) {
                // The stream of a camera that is gone cannot be stopped, which fails the
                // finish; the images that came before are still the set's, and the loss
                // is told with the set. Every other camera is still finished.
                const bool connected = camera->isConnected();
                if (connected && !failed) failed = std::current_exception();
                sets.push_back(connected ? nullptr : recordSource(*camera).sequenceSet());
            }
        }
        if (failed) std::rethrow_exception(failed);
        return sets;
    });
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
    try {
        return finishing.get();
    } catch (const std::exception&) {
        throwIfInterrupted();
        throw;
    }
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

// What one camera's finished set holds; `label` heads its lines ("" for one camera).
Collected collectFinished(Tavri::CameraDriver& camera, const std::shared_ptr<Tavri::ImageSet>& set, int count,
                          double triggerRate, const std::string& hint, double elapsed, const std::string& label) {
    if (!set || set->images.size() != static_cast<std::size_t>(count))
        throw ToolError(ExitCode::DriverError,
                        (boost::format("%sthe driver returned %d images for a sequence of %d") % label %
                         (set ? set->images.size() : 0) % count)
                            .str());

    const Tavri::SetVerdict verdict = judgeFinishedSet(camera, *set, triggerRate);
    const auto& records = recordSource(camera).sequenceRecords();
    // Slots from a failed or missing image on hold no image of this set.
    int arrived = 0;
    while (arrived < static_cast<int>(records.images.size()) && records.images[arrived].status == 0) ++arrived;

    Collected collected{{}, set->mode, {}, ExitCode::DriverError, brokenImages(verdict, arrived), setReport(records, verdict),
                        verdict};
    if (!verdict.whole()) {
        const bool endedOnly = std::all_of(verdict.problems.begin(), verdict.problems.end(), [](const auto& p) {
            return p.cause == Tavri::SetProblemCause::EndedEarly;
        });
        const bool waitedInVain = records.endedBecause == ImageWaitFailed;
        collected.failure = label + (endedOnly ? "sequence " + verdict.problems.front().detail
                                               : "set not whole: " + verdict.describe());
        // Advice to let the camera run free fits a camera that saw no trigger at all,
        // not one whose trigger stopped or came late.
        if (waitedInVain && arrived == 0 && !hint.empty()) collected.failure += "; " + hint;
        if (!endedOnly) collected.code = ExitCode::SetNotWhole;
    }
    // Copies: the set's pixel block is released by code in the plug-in.
    for (int i = 0; i < arrived; ++i) collected.images.push_back(set->images[static_cast<std::size_t>(i)].clone());
    if (arrived < count) unlessDisconnected(collected, [&] { throwIfDisconnected(camera, arrived); });

    std::cout << boost::format("%ssequence: %d of %d images in %.1f ms from start to finish, %.2f fps\n") % label %
                     arrived % count % elapsed % (arrived * 1000.0 / elapsed);
    std::cout << label << "verdict: " << verdict.describe() << "\n";
    return collected;
}

// One set per camera, all taken together.
std::vector<Collected> collectSequences(const std::vector<Session::OpenCamera>& cameras, int count, double triggerRate) {
    // Read before the start: no other call may reach a camera while its sequence runs.
    std::vector<std::string> hints;
    std::vector<Tavri::CameraDriver*> drivers;
    for (const auto& camera : cameras) {
        hints.push_back(triggerHint(*camera.driver));
        drivers.push_back(camera.driver);
    }
    const auto start = Clock::now();
    const auto sets = runSequence(drivers, count);
    const double elapsed = millisecondsBetween(start, Clock::now());
    throwIfInterrupted();
    std::vector<Collected> collected;
    for (std::size_t i = 0; i < cameras.size(); ++i)
        collected.push_back(collectFinished(*drivers[i], sets[i], count, triggerRate, hints[i], elapsed,
                                            cameras.size() > 1 ? cameras[i].serial + " " : ""));
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

// Writes each set's images into its folder (`folders`: below `directory`, "" for one
// camera), the report, and one contact sheet: a near-square grid for one camera, a row
// per camera for several.
void writeAll(const std::vector<Collected>& sets, const std::vector<std::string>& folders,
              const nlohmann::ordered_json& report, const std::string& directory, ImageFormat format, bool debayer) {
    if (!report.is_null()) writeSetReport(directory, report);
    const auto extension = extensionOf(format);
    const auto fileName = [&](const std::string& folder, const std::string& stem) {
        return (std::filesystem::path(directory) / folder / (stem + extension)).lexically_normal().string();
    };
    std::size_t longest = 0;
    for (const auto& collected : sets) longest = std::max(longest, collected.images.size());
    std::vector<cv::Mat> prepared;
    std::vector<bool> marked;
    Progress progress;
    for (std::size_t c = 0; c < sets.size() && longest > 0; ++c) {
        const auto& collected = sets[c];
        const auto total = collected.images.size();
        if (total > 0) createOutputDirectory((std::filesystem::path(directory) / folders[c]).string());
        for (std::size_t i = 0; i < total; ++i) {
            throwIfInterrupted();
            progress.show([&] { return (boost::format("writing images: %d of %d") % (i + 1) % total).str(); });
            prepared.push_back(forFile(collected.images[i], collected.mode, debayer));
            marked.push_back(i < collected.broken.size() && collected.broken[i]);
            writeImage(fileName(folders[c], (boost::format("image_%03d") % i).str()), prepared.back());
        }
        // A camera's row is as long as the longest set's; what it lacks shows as marked black.
        if (sets.size() > 1) {
            const auto& any = *std::find_if(sets.begin(), sets.end(), [](const Collected& s) { return !s.images.empty(); });
            const cv::Mat blank = cv::Mat::zeros(any.images.front().size(), CV_8UC1);
            prepared.insert(prepared.end(), longest - total, blank);
            marked.insert(marked.end(), longest - total, true);
        }
    }
    if (prepared.empty()) return;
    throwIfInterrupted();
    writeImage(fileName("", "contact_sheet"),
               contactSheet(prepared, 240, marked, sets.size() > 1 ? static_cast<int>(longest) : 0));
    progress.finish();
    for (std::size_t c = 0; c < sets.size(); ++c) {
        if (sets[c].images.empty()) continue;
        const auto& first = sets[c].images.front();
        std::cout << boost::format("wrote %d images (%d x %d): %s ...") % sets[c].images.size() % first.cols % first.rows %
                         fileName(folders[c], "image_000");
        std::cout << (sets.size() > 1 ? "\n" : " and the contact sheet " + fileName("", "contact_sheet") + "\n");
    }
    if (sets.size() > 1) std::cout << "contact sheet, a row per camera: " << fileName("", "contact_sheet") << "\n";
}

// Several cameras' sets: matched image by image. A disagreement is a failure of its
// own (a lost camera stays one); else a camera's own failure stands.
void judgeTogether(std::vector<Collected>& sets, const std::vector<Session::OpenCamera>& cameras, double triggerRate,
                   std::string& failure, ExitCode& code, nlohmann::ordered_json& report) {
    std::vector<Tavri::CameraSet> input;
    for (std::size_t i = 0; i < cameras.size(); ++i)
        input.push_back({cameras[i].serial, &recordSource(*cameras[i].driver).sequenceRecords(), &sets[i].verdict});
    Tavri::MatchOptions options;
    if (triggerRate > 0) options.periodNs = 1e9 / triggerRate;
    const Tavri::SetMatch match = Tavri::matchSets(input, options);
    std::vector<std::string> disagreements;
    for (const auto& p : match.problems)
        if (p.cause != Tavri::MatchCause::BrokenSet) disagreements.push_back(p.detail);
    std::cout << "match: " << (disagreements.empty() ? "image k of every camera answers the same trigger"
                                                     : std::to_string(disagreements.size()) + " disagreements")
              << " (judged by " << match.judgedBy << ")\n";
    std::cout << boost::format("skew of the cameras' host times: median %.3f ms, largest %.3f ms\n") %
                     (match.medianSkewNs / 1e6) % (match.largestSkewNs / 1e6);
    std::vector<std::pair<std::string, nlohmann::ordered_json>> reports;
    for (std::size_t i = 0; i < cameras.size(); ++i) reports.emplace_back(cameras[i].serial, sets[i].report);
    report = setsReport(reports, match);
    const auto lost = std::find_if(sets.begin(), sets.end(),
                                   [](const Collected& c) { return c.code == ExitCode::CameraDisconnected; });
    const auto failed = std::find_if(sets.begin(), sets.end(), [](const Collected& c) { return !c.failure.empty(); });
    if (lost != sets.end()) {
        failure = cameras[static_cast<std::size_t>(lost - sets.begin())].serial + " " + lost->failure;
        code = lost->code;
    } else if (!disagreements.empty()) {
        failure = "the cameras' sets disagree: " + boost::algorithm::join(disagreements, "; ");
        code = ExitCode::SetsDisagree;
    } else if (failed != sets.end()) {
        failure = failed->failure;
        code = failed->code;
    }
}

void run(Session& session, const SequenceOptions& settings, ImageFormat format, bool debayer) {
    std::vector<Collected> sets;
    std::vector<std::string> folders{""};
    nlohmann::ordered_json report;
    std::string failure;
    auto code = ExitCode::DriverError;
    if (settings.perImageTimes) {
        sets.push_back(collectTimed(session.open(), settings.count, settings.timeout));
    } else {
        const auto cameras = session.openAll();
        sets = collectSequences(cameras, settings.count, settings.triggerRate);
        if (cameras.size() > 1) {
            folders.clear();
            for (const auto& camera : cameras) folders.push_back(camera.serial);
            judgeTogether(sets, cameras, settings.triggerRate, failure, code, report);
        }
    }
    if (sets.size() == 1) {
        failure = sets.front().failure;
        code = sets.front().code;
        report = sets.front().report;
    }
    if (failure.empty()) {
        writeAll(sets, folders, report, settings.directory, format, debayer);
        return;
    }
    std::size_t kept = 0;
    for (auto& collected : sets) {
        kept += collected.images.size();
        // The record of what went wrong is written whatever else is.
        if (!settings.keepPartial) collected.images.clear();
    }
    writeAll(sets, folders, report, settings.directory, format, debayer);
    const char* const written = settings.keepPartial ? "; %d images kept (--keep-partial)"
                                : kept == 0             ? ""
                                                        : "; no images written (--keep-partial writes the %d that arrived)";
    throw ToolError(code, failure + (*written ? (boost::format(written) % kept).str() : ""));
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
