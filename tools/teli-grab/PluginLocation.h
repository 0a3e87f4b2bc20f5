#pragma once

#include <filesystem>

namespace TeliGrab {

// The plug-in teli-grab loads when --plugin is not given: beside the executable if it
// is there (the build tree), else where an install puts it relative to the executable,
// so that an installed tree works under any prefix, also unpacked somewhere else.
std::filesystem::path defaultPluginPath(const std::filesystem::path& executableDirectory);

// `fileName` found the same way: beside the executable, else in the plug-in's
// installed folder (teli-grab's image codec module lies there too).
std::filesystem::path installedBesidePlugin(const std::filesystem::path& executableDirectory, const char* fileName);

}  // namespace TeliGrab
