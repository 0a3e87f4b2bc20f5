#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>

#include "Commands.h"
#include "ContinuousGrab.h"
#include "DriverLogTap.h"
#include "ImageOutput.h"
#include "Session.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

struct SequenceOptions {
    int count = 0;
    std::string directory;
    bool perImageTimes = false;
    int timeoutMs = 2000;
};

struct Collected {
    std::vector<cv::Mat> images;
    Tavri::ImageType mode = Tavri::ImageType::Raw;
};

// The driver's hardware-triggered sequence. The set arrives whole at the finish, so
// only the time from start to finish can be measured, not each image's arrival.
Collected collectSequence(Tavri::CameraDriver& camera, int count) {
    DriverLogTap tap;
    const auto start = Clock::now();
    camera.startGrabSequenceAsync(count);
    auto set = camera.finishGrabSequenceAsync();
    const auto finish = Clock::now();

    // A lost image only shows in the log; the slots from it on hold undefined bytes.
    const auto failures = tap.failures();
    if (!failures.empty())
        throw ToolError(ExitCode::DriverError,
                        (boost::format("the driver reported a failure during the sequence (%s); images from the "
                                       "failure on are undefined, nothing was written") %
                         boost::algorithm::join(failures, "; "))
                            .str());
    if (!set || set->images.size() != static_cast<std::size_t>(count))
        throw ToolError(ExitCode::DriverError,
                        (boost::format("the driver returned %d images for a sequence of %d") %
                         (set ? set->images.size() : 0) % count)
                            .str());

    // Copies: the set's pixel block is released by code in the plug-in.
    Collected collected{{}, set->mode};
    for (const auto& image : set->images) collected.images.push_back(image.clone());

    const double elapsed = millisecondsBetween(start, finish);
    std::cout << boost::format("sequence: %d images in %.1f ms from start to finish, %.2f fps\n") % count % elapsed %
                     (count * 1000.0 / elapsed);
    std::cout << "arrival times of single images are not visible: the sequence hands all images over at the finish "
                 "(--per-image-times measures them through continuous grabbing)\n";
    return collected;
}

// The same count through continuous grabbing, timing each image as it arrives.
Collected collectTimed(Tavri::CameraDriver& camera, int count, int timeoutMs) {
    Collected collected{{}, camera.getMode()};
    std::vector<double> arrivals;
    {
        const cv::Mat prototype = ContinuousGrab::frameFor(camera);
        ContinuousGrab grab(camera);
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i) {
            cv::Mat frame(prototype.size(), prototype.type());
            camera.getNextImage(frame, timeoutMs);
            arrivals.push_back(millisecondsBetween(start, Clock::now()));
            collected.images.push_back(frame);
        }
    }
    std::cout << "image  arrival ms  interval ms\n";
    for (std::size_t i = 0; i < arrivals.size(); ++i)
        std::cout << boost::format("%5d  %10.1f  %11.1f\n") % i % arrivals[i] % (i ? arrivals[i] - arrivals[i - 1] : arrivals[i]);
    std::cout << boost::format("sequence: %d images in %.1f ms after the start, %.2f fps\n") % count % arrivals.back() %
                     (count * 1000.0 / arrivals.back());
    return collected;
}

void writeAll(const Collected& collected, const std::string& directory, bool debayer) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        throw ToolError(ExitCode::OutputError,
                        (boost::format("cannot create directory '%s': %s") % directory % error.message()).str());
    std::vector<cv::Mat> prepared;
    for (std::size_t i = 0; i < collected.images.size(); ++i) {
        prepared.push_back(forPng(collected.images[i], collected.mode, debayer));
        writePng((std::filesystem::path(directory) / (boost::format("image_%03d.png") % i).str()).string(), prepared.back());
    }
    const auto sheet = (std::filesystem::path(directory) / "contact_sheet.png").lexically_normal().string();
    writePng(sheet, contactSheet(prepared));
    std::cout << boost::format("wrote %d images (%d x %d): %s ... and the contact sheet %s\n") % prepared.size() %
                     collected.images.front().cols % collected.images.front().rows %
                     (std::filesystem::path(directory) / "image_000.png").lexically_normal().string() % sheet;
}

}  // namespace

void addSequenceCommand(CLI::App& app, const GlobalOptions& options) {
    auto settings = std::make_shared<SequenceOptions>();
    auto* command = app.add_subcommand(
        "sequence", "Take a hardware-triggered sequence of N images; write image_000.png... and contact_sheet.png");
    command->add_option("count", settings->count, "number of images")->required()->check(CLI::PositiveNumber);
    command->add_option("-o,--output", settings->directory, "directory for the PNG files")->required();
    command->add_flag("--per-image-times", settings->perImageTimes,
                      "collect through continuous grabbing instead, timing each image's arrival");
    command->add_option("--timeout", settings->timeoutMs, "with --per-image-times: wait per image, ms")
        ->capture_default_str();
    command->callback([&options, settings] {
        withSession(options, [&](Session& session) {
            auto& camera = session.open();
            const auto collected = settings->perImageTimes ? collectTimed(camera, settings->count, settings->timeoutMs)
                                                           : collectSequence(camera, settings->count);
            writeAll(collected, settings->directory, options.debayer);
        });
    });
}

}  // namespace TeliGrab
