#include "platform/PluginLibrary.h"

#include <windows.h>

namespace Tavri::platform {
namespace {
std::string lastError() { return "Windows error " + std::to_string(::GetLastError()); }
}  // namespace

PluginLibrary::PluginLibrary(const std::string& path) : path_(path), handle_(::LoadLibraryA(path.c_str())) {
    if (!handle_) throw PluginError("cannot load plug-in '" + path + "': " + lastError());
}

PluginLibrary::~PluginLibrary() { ::FreeLibrary(static_cast<HMODULE>(handle_)); }

void* PluginLibrary::symbol(const char* name) const {
    // Through void*: FARPROC and the entry point's real type are unrelated function types.
    void* address = reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
    if (!address)
        throw PluginError("plug-in '" + path_ + "' has no entry point '" + name + "': " + lastError());
    return address;
}

std::string PluginLibrary::defaultPath() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string program(path, length);
    return program.substr(0, program.find_last_of("\\/") + 1) + "tavri_toshiba_teli.dll";
}

}  // namespace Tavri::platform
