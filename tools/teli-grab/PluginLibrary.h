#pragma once

#include <string>

namespace TeliGrab {

// Owns one dlopen handle; closes it on destruction.
class PluginLibrary {
public:
    // Throws ToolError(PluginNotLoaded) naming the path and dlerror.
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // The entry point `name`, or ToolError(PluginNotLoaded) naming it.
    template <typename Function>
    Function entryPoint(const char* name) const {
        return reinterpret_cast<Function>(symbol(name));
    }

    const std::string& path() const { return path_; }

    // The plug-in beside this executable or in its installed place (defaultPluginPath),
    // from the executable's folder found through /proc/self/exe.
    static std::string defaultPath();

private:
    void* symbol(const char* name) const;

    std::string path_;
    void* handle_;
};

}  // namespace TeliGrab
