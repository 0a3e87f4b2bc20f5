#pragma once

#include <stdexcept>
#include <string>

namespace TeliGrab {

// Exit codes; the help footer and README.md list the same table.
enum class ExitCode : int {
    Ok = 0,
    Usage = 1,
    PluginNotLoaded = 2,
    CameraNotFound = 3,
    DriverError = 4,
    BadSettingsFile = 5,
    OutputError = 6,
    CameraDisconnected = 7,
    SetNotWhole = 8,  // a sequence whose images do not answer their own triggers
    SetsDisagree = 9, // several cameras' sets whose image k answers different triggers
    HungUp = 129,       // SIGHUP: 128 + 1
    Interrupted = 130,  // SIGINT: 128 + 2, as a shell reports it
    BrokenPipe = 141,   // SIGPIPE: 128 + 13
    Terminated = 143,   // SIGTERM: 128 + 15
};

// The one exception type that leaves a session. Driver exceptions are turned into it
// while the plug-in is still loaded: their code lives in the plug-in, so they must be
// gone before dlclose.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace TeliGrab
