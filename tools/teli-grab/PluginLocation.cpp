#include "PluginLocation.h"

// The install rules define where the plug-in lies relative to the installed
// executable; a build without them looks beside the executable only.
#ifndef TELI_GRAB_PLUGIN_DIR_FROM_BINDIR
#define TELI_GRAB_PLUGIN_DIR_FROM_BINDIR "."
#endif

namespace TeliGrab {

std::filesystem::path defaultPluginPath(const std::filesystem::path& executableDirectory) {
    return installedBesidePlugin(executableDirectory, "libtavri_toshiba_teli.so");
}

std::filesystem::path installedBesidePlugin(const std::filesystem::path& executableDirectory, const char* name) {
    const auto beside = executableDirectory / name;
    std::error_code error;
    if (std::filesystem::exists(beside, error)) return beside;
    return (executableDirectory / TELI_GRAB_PLUGIN_DIR_FROM_BINDIR / name).lexically_normal();
}

}  // namespace TeliGrab
