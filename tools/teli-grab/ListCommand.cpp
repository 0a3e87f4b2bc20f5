#include <boost/format.hpp>
#include <iostream>

#include "CameraChecks.h"
#include "Commands.h"
#include "Session.h"
#include "TavriAPI/CameraAddresses.h"

namespace TeliGrab {

void addListCommand(CLI::App& app, const GlobalOptions& options) {
    auto* command = app.add_subcommand("list", "List the cameras the driver can see: serial, model, vendor, transport address");
    command->callback([&options] {
        withSession(options, [](Session& session) {
            const auto cameras = session.camera().getInfoInternalCameras();
            // Where each camera is reached, when the plug-in tells it.
            auto* addresses = dynamic_cast<Tavri::CameraAddressSource*>(&session.camera());
            boost::format row("%-20s %-24s %-24s %s\n");
            std::cout << row % "SERIAL" % "MODEL" % "VENDOR" % "ADDRESS";
            for (const auto& info : cameras) {
                const auto address = addresses ? addresses->transportAddress(info.serialNumber) : std::string();
                std::cout << row % info.serialNumber % info.model % info.vendor % (address.empty() ? "-" : address);
            }
            if (cameras.empty()) std::cerr << "teli-grab: " << noCameraText(session.camera()) << '\n';
        });
    });
}

}  // namespace TeliGrab
