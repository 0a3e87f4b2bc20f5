#include "platform/PluginLibrary.h"

#include <dlfcn.h>

#include <filesystem>

namespace Tavri::platform {
namespace {
std::string lastDlError() {
    const char* text = dlerror();
    return text ? text : "unknown dynamic loader error";
}
}  // namespace

// RTLD_NOW: a plug-in with unresolved symbols fails here, with a clear message, rather
// than in the middle of a grab. RTLD_LOCAL: its symbols stay its own, as in the platform.
PluginLibrary::PluginLibrary(const std::string& path)
    : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_) throw PluginError("cannot load plug-in '" + path + "': " + lastDlError());
}

PluginLibrary::~PluginLibrary() { dlclose(handle_); }

void* PluginLibrary::symbol(const char* name) const {
    dlerror();
    void* address = dlsym(handle_, name);
    if (!address)
        throw PluginError("plug-in '" + path_ + "' has no entry point '" + name + "': " + lastDlError());
    return address;
}

std::string PluginLibrary::defaultPath() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto directory = error ? std::filesystem::current_path() : self.parent_path();
    return (directory / "libtavri_toshiba_teli.so").string();
}

}  // namespace Tavri::platform
