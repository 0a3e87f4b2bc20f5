#include <boost/format.hpp>
#include <iostream>
#include <memory>

#include "CameraChecks.h"
#include "Commands.h"
#include "ImageFile.h"
#include "ImageOutput.h"
#include "Interrupt.h"
#include "Session.h"
#include "SetReport.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

// The driver's grab waits at most 2 s, so a signal is heard right after it.
cv::Mat grabOne(Tavri::CameraDriver& camera) {
    std::string failure;
    cv::Mat image;
    try {
        image = camera.grab();
    } catch (const std::exception& error) {
        failure = error.what();
    }
    throwIfInterrupted();
    if (failure.empty()) return image;
    throwIfDisconnected(camera, 0);
    const auto hint = failure == ImageWaitFailed ? triggerHint(camera) : std::string();
    throw ToolError(ExitCode::DriverError, "grab: " + failure + (hint.empty() ? "" : "; " + hint));
}

}  // namespace

void addGrabCommand(CLI::App& app, const GlobalOptions& options) {
    auto output = std::make_shared<std::string>();
    auto* command = app.add_subcommand("grab", "Take one image and write it; the format follows the extension");
    command->add_option("-o,--output", *output, "image file to write: .png, .jpg/.jpeg or .tif/.tiff")->required();
    command->callback([&options, output] {
        checkOutputFile(*output);
        withSession(options, [&](Session& session) {
            auto& camera = session.open();
            const cv::Mat taken = grabOne(camera);
            refuseWrongSize(recordSource(camera).lastImageRecord(), camera.getMode(), taken);
            // What the file holds: a debayered Raw image has three channels, not one.
            const cv::Mat image = forFile(taken, camera.getMode(), options.debayer);
            writeImage(*output, image);
            std::cout << boost::format("wrote %s: %d x %d, %d channel(s)\n") % *output % image.cols % image.rows %
                             image.channels();
        });
    });
}

}  // namespace TeliGrab
