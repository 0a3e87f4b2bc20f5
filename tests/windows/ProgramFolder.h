#pragma once

#include <windows.h>

#include <string>

namespace Tavri::test {

// The folder of the running program, where the build puts the plug-in and its DLLs.
inline std::string programFolder() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path, length);
    return folder.substr(0, folder.find_last_of("\\/"));
}

}  // namespace Tavri::test
