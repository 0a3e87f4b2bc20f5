// teli-grab: a command-line host for the Toshiba Teli camera-driver plug-in.
#include <CLI/CLI.hpp>
#include <iostream>

#include "Commands.h"
#include "Interrupt.h"
#include "Options.h"
#include "StandardOutput.h"
#include "ToolError.h"
#include "TavriCommon/Logger.h"
#include "platform/PluginLibrary.h"
#include "view/ViewCommand.h"

namespace {

const char* const kFooter = R"(Exit codes:
  0    success
  1    usage error (bad option or command, bad --set Key=Value, bad output file name)
  2    the plug-in cannot be loaded (the path tried and the loader's message are shown)
  3    camera not found (an unknown --serial lists the serials present)
  4    driver error or failed acquisition (the cause is shown: the driver's message, a
       timeout with a hint when the camera waits for a hardware trigger, a sequence
       that ended early, too many failures in a row)
  5    bad settings file (file:line:column and key are shown); with --strict also a
       value the camera did not keep
  6    an output file or directory, or standard output, cannot be written (with the
       system's reason)
  7    the camera was disconnected ("camera disconnected after N frames")
  8    a sequence's set is not whole: images missing, extra, stale or failed, each
       named with the trigger it should have answered (sequence.json has them all)
  9    the sets of several cameras disagree: an image of one camera answers another
       trigger than the same image of the first, or the counts differ (camera, image
       and cause are named)
  129  hung up by SIGHUP: the camera and the driver were released
  130  interrupted by SIGINT (Ctrl-C): the camera and the driver were released
  141  SIGPIPE, the reader of standard output went away: the camera and the driver
       were released
  143  terminated by SIGTERM: the camera and the driver were released
A second such signal ends the tool at once, without releasing anything.

Environment:
  TAVRI_TELI_SDK   camera SDK backend: sim, aravis or teli (set by --sdk)
  TAVRI_SIM_RIG    simulated rig file for the sim backend (set by --rig)
  TAVRI_LOG_LEVEL  lowest level of the driver's log on stderr, 0-4 or its name (set by
                   --log-level; default 3))";

int fail(TeliGrab::ExitCode code, const std::string& message) {
    std::cerr << "teli-grab: error: " << message << '\n';
    return static_cast<int>(code);
}

// CLI11 takes a mistyped command for an extra argument; name it as a command.
std::string unknownCommand(const CLI::App& app) {
    const auto extras = app.remaining();
    if (extras.empty() || extras.front().rfind("-", 0) == 0) return {};
    std::string known;
    for (const auto* command : app.get_subcommands({}))
        known += (known.empty() ? "" : ", ") + command->get_name();
    return "unknown command '" + extras.front() + "'; commands: " + known;
}

}  // namespace

static int runTool(int argc, char** argv) {
    using namespace TeliGrab;
    installInterruptHandlers();
    GlobalOptions options;
    CLI::App app("Load the Toshiba Teli plug-in as the platform does, and list, configure and grab from cameras.",
                 "teli-grab");
    app.footer(kFooter);
    // --help lists every command's options as well: it is the manual's source.
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "print this help, with the options of every command, and exit");
    app.set_version_flag("--version", "teli-grab " TELI_GRAB_VERSION, "print the tool's version and exit");
    app.require_subcommand(0, 1);
    // Global options may follow the subcommand as well.
    app.fallthrough();

    app.add_option("--sdk", options.sdk, "camera SDK backend (sets TAVRI_TELI_SDK)")
        ->check(CLI::IsMember({"sim", "aravis", "teli"}));
    app.add_option("--serial", options.serials,
                   "serial number of the camera (default: the first listed); sequence, stream and view take it "
                   "several times, for cameras on one projector");
    app.add_flag("--all", options.all, "sequence, stream and view: every camera listed");
    app.add_option("--mode", options.mode, "colour mode sent to the camera with setMode, after all settings")
        ->check(CLI::IsMember({"gray", "color", "raw"}));
    app.add_option("--plugin", options.plugin, "plug-in to load (default: libtavri_toshiba_teli.so beside teli-grab, else the installed one)");
    app.add_option("--rig", options.rig, "simulated rig file (sets TAVRI_SIM_RIG)");
    // The words the driver's logger takes from TAVRI_LOG_LEVEL, by the logger's own parser.
    app.add_option("--log-level", options.logLevel,
                   "lowest level the driver's log shows, 0-4 or debug, info, notice, warning, critical (sets "
                   "TAVRI_LOG_LEVEL)")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                if (Tavri::Log::parseLogLevel(text)) return {};
                return "'" + text + "' is not a log level (0-4, debug, info, notice, warning, critical)";
            },
            "LEVEL"));
    app.add_flag("--debayer", options.debayer, "write Raw (BayerBG8) images as colour previews");
    app.add_option("--settings", options.settingsFile,
                   "JSON settings file applied after opening, before --set (checked before anything is applied)");
    app.add_option("--set", options.sets, "apply one setting after opening, Key=Value (repeatable)")
        ->allow_extra_args(false);
    app.add_flag("--strict", options.strict,
                 "exit 5 when the camera did not keep a value asked for (read back after applying)");

    addListCommand(app, options);
    addSettingsCommands(app, options);
    addGrabCommand(app, options);
    addSequenceCommand(app, options);
    addStreamCommand(app, options);
    addViewCommand(app, options);

    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) return fail(ExitCode::Usage, "a command is required; see --help");
        return static_cast<int>(ExitCode::Ok);
    } catch (const CLI::ExtrasError& error) {
        const auto unknown = app.get_subcommands().empty() ? unknownCommand(app) : std::string();
        if (unknown.empty()) return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
        return fail(ExitCode::Usage, unknown);
    } catch (const CLI::ParseError& error) {
        const int printed = app.exit(error);
        return printed == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    } catch (const ToolError& error) {
        return fail(error.code(), error.what());
    } catch (const Tavri::platform::PluginError& error) {
        return fail(ExitCode::PluginNotLoaded, error.what());
    } catch (const std::exception& error) {
        return fail(ExitCode::DriverError, error.what());
    }
}

int main(int argc, char** argv) {
    TeliGrab::checkStandardOutput();
    const int code = runTool(argc, argv);
    // Output that did not reach standard output fails the run, whatever else happened.
    const std::string lost = TeliGrab::standardOutputFailure();
    if (lost.empty()) return code;
    const int failed = fail(TeliGrab::ExitCode::OutputError, "cannot write to standard output: " + lost);
    return code == 0 ? failed : code;
}
