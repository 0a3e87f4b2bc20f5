#include "Host.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

namespace TavriPython {

using TeliGrab::ExitCode;
using TeliGrab::ToolError;

namespace {

constexpr const char* kPluginName = "libtavri_toshiba_teli.so";

#ifndef TAVRI_TELI_PLUGIN_DIR_FROM_MODULE
#define TAVRI_TELI_PLUGIN_DIR_FROM_MODULE "."
#endif

// The plug-in: TAVRI_TELI_PLUGIN, else beside this module, else the build tree's bin/
// beside python/, else where an install puts it relative to the module, else the
// library path.
std::string pluginPath() {
    if (const char* given = std::getenv("TAVRI_TELI_PLUGIN"); given && *given) return given;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&pluginPath), &info) && info.dli_fname) {
        const auto here = std::filesystem::absolute(info.dli_fname).parent_path();
        std::error_code error;
        for (const auto& candidate : {here / kPluginName, here.parent_path() / "bin" / kPluginName,
                                      (here / TAVRI_TELI_PLUGIN_DIR_FROM_MODULE / kPluginName).lexically_normal()})
            if (std::filesystem::exists(candidate, error)) return candidate.string();
    }
    return kPluginName;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The plug-in while anything from it lives, and the backend and rig it started with.
struct LoadedPlugin {
    std::weak_ptr<PluginLibrary> pin;
    std::pair<std::string, std::string> chosen;
};
LoadedPlugin& loadedPlugin() {
    static LoadedPlugin loaded;
    return loaded;
}

// The threads that release cameras left to interrupted driver calls.
struct Interrupted {
    std::mutex mutex;
    std::vector<std::thread> releasing;
};
Interrupted& interrupted() {
    static Interrupted calls;
    return calls;
}

}  // namespace

void checkSignals() {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

void raise(PyObject* type, const std::string& text) {
    PyErr_SetString(type, text.c_str());
    throw py::error_already_set();
}

py::object fromJson(const std::string& text) { return py::module_::import("json").attr("loads")(text); }

void waitForInterruptedCalls() {
    std::vector<std::thread> releasing;
    {
        std::lock_guard<std::mutex> lock(interrupted().mutex);
        releasing.swap(interrupted().releasing);
    }
    py::gil_scoped_release release;
    for (auto& thread : releasing) thread.join();
}

Host::Host(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig)
    : options_(std::make_shared<TeliGrab::GlobalOptions>()) {
    waitForInterruptedCalls();
    if (serial && !serial->empty()) options_->serials = {*serial};
    options_->sdk = sdk.value_or("");
    options_->rig = rig.value_or("");
    // The plug-in keeps the backend, and the rig, it made first for as long as it
    // stays loaded: another one asked for meanwhile would be ignored without a word.
    const auto chosen = std::make_pair(options_->sdk.empty() ? environment("TAVRI_TELI_SDK") : options_->sdk,
                                       options_->rig.empty() ? environment("TAVRI_SIM_RIG") : options_->rig);
    auto& loaded = loadedPlugin();
    pin_ = loaded.pin.lock();
    if (pin_ && loaded.chosen != chosen)
        throw ToolError(ExitCode::Usage, "the plug-in is still loaded with sdk '" + loaded.chosen.first +
                                             "' and rig '" + loaded.chosen.second +
                                             "' (an open camera or an image array from it holds it); "
                                             "release those before asking for another");
    TeliGrab::exportEnvironment(*options_);
    const auto path = pluginPath();
    if (!pin_) {
        pin_ = std::make_shared<PluginLibrary>(path);
        loaded = {pin_, chosen};
    }
    py::gil_scoped_release release;
    session_ = std::make_unique<TeliGrab::Session>(*options_, path, std::vector<TeliGrab::CheckedSettings>{});
}

TeliGrab::Session& Host::session() {
    if (!session_) throw ToolError(ExitCode::Usage, "the camera is closed");
    return *session_;
}

void Host::close() {
    if (!session_) return;
    {
        py::gil_scoped_release release;
        session_.reset();
    }
    pin_.reset();
}

void Host::retire(std::function<void()> finish) {
    std::thread releasing([finish = std::move(finish), options = options_, session = std::move(session_),
                           pin = std::move(pin_)]() mutable {
        finish();
        finish = nullptr;  // what the call returned goes first: its code is the plug-in's
        session.reset();
        pin.reset();
    });
    std::lock_guard<std::mutex> lock(interrupted().mutex);
    interrupted().releasing.push_back(std::move(releasing));
}

}  // namespace TavriPython
