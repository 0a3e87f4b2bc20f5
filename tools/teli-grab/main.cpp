// teli-grab: a command-line host for the Toshiba Teli camera-driver plug-in.
#include <CLI/CLI.hpp>
#include <iostream>

#include "Commands.h"
#include "Options.h"
#include "ToolError.h"
#include "view/ViewCommand.h"

namespace {

const char* const kFooter = R"(Exit codes:
  0  success
  1  usage error (bad option, bad --set Key=Value)
  2  the plug-in cannot be loaded (the path tried and the loader's message are shown)
  3  camera not found (an unknown --serial lists the serials present)
  4  driver error (the driver's message is shown)
  5  bad settings file (file name and position are shown)
  6  an output file or directory cannot be written

Environment set for the driver: TAVRI_TELI_SDK (--sdk), TAVRI_SIM_RIG (--rig),
TAVRI_LOG_LEVEL (--log-level).)";

int fail(TeliGrab::ExitCode code, const std::string& message) {
    std::cerr << "teli-grab: error: " << message << '\n';
    return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace TeliGrab;
    GlobalOptions options;
    CLI::App app("Load the Toshiba Teli plug-in as the platform does, and list, configure and grab from cameras.",
                 "teli-grab");
    app.footer(kFooter);
    app.require_subcommand(1);
    // Global options may follow the subcommand as well.
    app.fallthrough();

    app.add_option("--sdk", options.sdk, "camera SDK backend (sets TAVRI_TELI_SDK)")
        ->check(CLI::IsMember({"sim", "aravis", "teli"}));
    app.add_option("--serial", options.serial, "serial number of the camera (default: the first listed)");
    app.add_option("--mode", options.mode, "colour mode sent to the camera with setMode")
        ->check(CLI::IsMember({"gray", "color", "raw"}));
    app.add_option("--plugin", options.plugin, "plug-in to load (default: libtavri_toshiba_teli.so beside teli-grab)");
    app.add_option("--rig", options.rig, "simulated rig file (sets TAVRI_SIM_RIG)");
    app.add_option("--log-level", options.logLevel, "lowest level the driver's log shows (sets TAVRI_LOG_LEVEL)")
        ->check(CLI::Range(0, 4));
    app.add_flag("--debayer", options.debayer, "write Raw (BayerBG8) images as colour previews");
    app.add_option("--set", options.sets, "apply one setting after opening, Key=Value (repeatable)")
        ->allow_extra_args(false);

    addListCommand(app, options);
    addSettingsCommands(app, options);
    addGrabCommand(app, options);
    addSequenceCommand(app, options);
    addStreamCommand(app, options);
    addViewCommand(app, options);

    try {
        app.parse(argc, argv);
        return static_cast<int>(ExitCode::Ok);
    } catch (const CLI::ParseError& error) {
        const int printed = app.exit(error);
        return printed == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    } catch (const ToolError& error) {
        return fail(error.code(), error.what());
    } catch (const std::exception& error) {
        return fail(ExitCode::DriverError, error.what());
    }
}
