#include <boost/format.hpp>
#include <iostream>
#include <memory>

#include "Commands.h"
#include "ImageOutput.h"
#include "Session.h"

namespace TeliGrab {

void addGrabCommand(CLI::App& app, const GlobalOptions& options) {
    auto output = std::make_shared<std::string>();
    auto* command = app.add_subcommand("grab", "Take one image and write it as PNG");
    command->add_option("-o,--output", *output, "PNG file to write")->required();
    command->callback([&options, output] {
        withSession(options, [&](Session& session) {
            auto& camera = session.open();
            const cv::Mat image = camera.grab();
            writePng(*output, forPng(image, camera.getMode(), options.debayer));
            std::cout << boost::format("wrote %s: %d x %d, %d channel(s)\n") % *output % image.cols % image.rows %
                             image.channels();
        });
    });
}

}  // namespace TeliGrab
