#pragma once
// One plug-in library, loaded as the platform loads camera drivers (dlopen with
// RTLD_NOW | RTLD_LOCAL, or LoadLibrary) and unloaded on destruction, and the
// driver's three C entry points. Shared by teli-grab and the tests that load the
// plug-in.

#include <stdexcept>
#include <string>

namespace Tavri {
class CameraDriver;
}

namespace Tavri::platform {

// A library that cannot be loaded, or lacks an entry point; the text names the path,
// the entry point and the loader's own error.
class PluginError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class PluginLibrary {
public:
    // Throws PluginError "cannot load plug-in '<path>': <loader's error>".
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // The entry point `name`; throws PluginError "plug-in '<path>' has no entry point
    // '<name>': <loader's error>".
    template <typename Function>
    Function entryPoint(const char* name) const {
        return reinterpret_cast<Function>(symbol(name));
    }

    const std::string& path() const { return path_; }

    // The driver's plug-in beside this program: libtavri_toshiba_teli.so, or
    // tavri_toshiba_teli.dll on Windows.
    static std::string defaultPath();

private:
    void* symbol(const char* name) const;

    std::string path_;
    void* handle_;
};

// The plug-in's three entry points (TavriAPI/CameraDriver.h), each resolved when the
// library is loaded.
struct DriverEntryPoints {
    explicit DriverEntryPoints(const PluginLibrary& library)
        : initializeDriver(library.entryPoint<void (*)()>("initializeDriver")),
          createCamera(library.entryPoint<CameraDriver* (*)()>("createCamera")),
          releaseDriver(library.entryPoint<void (*)()>("releaseDriver")) {}
    void (*initializeDriver)();
    CameraDriver* (*createCamera)();
    void (*releaseDriver)();
};

}  // namespace Tavri::platform
