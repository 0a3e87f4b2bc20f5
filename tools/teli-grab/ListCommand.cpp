#include <boost/format.hpp>
#include <iostream>

#include "Commands.h"
#include "Session.h"

namespace TeliGrab {

void addListCommand(CLI::App& app, const GlobalOptions& options) {
    auto* command = app.add_subcommand("list", "List the cameras the driver can see: serial, model, vendor");
    command->callback([&options] {
        withSession(options, [](Session& session) {
            const auto cameras = session.camera().getInfoInternalCameras();
            boost::format row("%-20s %-24s %s\n");
            std::cout << row % "SERIAL" % "MODEL" % "VENDOR";
            for (const auto& info : cameras) std::cout << row % info.serialNumber % info.model % info.vendor;
            if (cameras.empty()) std::cerr << "teli-grab: no cameras found\n";
        });
    });
}

}  // namespace TeliGrab
