#include "PluginLibrary.h"

#include <dlfcn.h>

#include <boost/format.hpp>
#include <filesystem>

#include "PluginLocation.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {
std::string lastDlError() {
    const char* text = dlerror();
    return text ? text : "unknown dynamic loader error";
}
}  // namespace

// RTLD_NOW: a plug-in with unresolved symbols fails here, with a clear message, rather
// than in the middle of a grab. RTLD_LOCAL: its symbols stay its own, as in the platform.
PluginLibrary::PluginLibrary(const std::string& path) : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_)
        throw ToolError(ExitCode::PluginNotLoaded,
                        (boost::format("cannot load plug-in '%s': %s") % path % lastDlError()).str());
}

PluginLibrary::~PluginLibrary() { dlclose(handle_); }

void* PluginLibrary::symbol(const char* name) const {
    dlerror();
    void* address = dlsym(handle_, name);
    if (!address)
        throw ToolError(ExitCode::PluginNotLoaded,
                        (boost::format("plug-in '%s' has no entry point '%s': %s") % path_ % name % lastDlError()).str());
    return address;
}

std::string PluginLibrary::defaultPath() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto directory = error ? std::filesystem::current_path() : self.parent_path();
    return defaultPluginPath(directory).string();
}

}  // namespace TeliGrab
