#include "Session.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <cstdlib>
#include <iostream>

#include "SettingsArgs.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

// The driver and the simulator read these when they start, so they are set before the
// plug-in is loaded.
void exportEnvironment(const GlobalOptions& options) {
    if (!options.sdk.empty()) setenv("TAVRI_TELI_SDK", options.sdk.c_str(), 1);
    if (!options.rig.empty()) setenv("TAVRI_SIM_RIG", options.rig.c_str(), 1);
    if (!options.logLevel.empty()) setenv("TAVRI_LOG_LEVEL", options.logLevel.c_str(), 1);
}

std::string pluginPath(const GlobalOptions& options) {
    return options.plugin.empty() ? PluginLibrary::defaultPath() : options.plugin;
}

// Calls into the plug-in; a throw becomes a ToolError while the plug-in is loaded.
template <typename Call>
auto guarded(const char* what, Call&& call) -> decltype(call()) {
    try {
        return call();
    } catch (const ToolError&) {
        throw;
    } catch (const std::exception& error) {
        throw ToolError(ExitCode::DriverError, (boost::format("%s: %s") % what % error.what()).str());
    } catch (...) {
        throw ToolError(ExitCode::DriverError, (boost::format("%s: unknown exception") % what).str());
    }
}

Tavri::ImageType parseMode(const std::string& word) {
    if (word == "gray") return Tavri::ImageType::Gray;
    if (word == "color") return Tavri::ImageType::Color;
    return Tavri::ImageType::Raw;
}

}  // namespace

DriverLifetime::DriverLifetime(const PluginLibrary& library)
    : release_(library.entryPoint<TavriReleaseDriverFn>("releaseDriver")) {
    auto initialize = library.entryPoint<TavriInitializeDriverFn>("initializeDriver");
    // Resolve createCamera too before starting anything, so a plug-in missing it is
    // refused without a started SDK.
    library.entryPoint<TavriCreateCameraFn>("createCamera");
    guarded("initializeDriver", [&] { initialize(); });
}

DriverLifetime::~DriverLifetime() {
    try {
        release_();
    } catch (const std::exception& error) {
        std::cerr << "teli-grab: warning: releaseDriver: " << error.what() << '\n';
    } catch (...) {
    }
}

CameraObject::CameraObject(const PluginLibrary& library) {
    auto create = library.entryPoint<TavriCreateCameraFn>("createCamera");
    camera_.reset(guarded("createCamera", [&] { return create(); }));
    if (!camera_) throw ToolError(ExitCode::DriverError, "createCamera returned no camera object");
}

CameraObject::~CameraObject() {
    if (!opened_ || !camera_) return;
    try {
        camera_->releaseCamera();
    } catch (const std::exception& error) {
        std::cerr << "teli-grab: warning: releaseCamera: " << error.what() << '\n';
    } catch (...) {
    }
}

Session::Session(const GlobalOptions& options, const std::string& pluginPath)
    : options_(options), library_(pluginPath), lifetime_(library_), camera_(library_) {}

Tavri::CameraDriver& Session::open(const Tavri::TSettings* tree) {
    auto& driver = camera();
    const auto cameras = guarded("getInfoInternalCameras", [&] { return driver.getInfoInternalCameras(); });
    if (cameras.empty()) throw ToolError(ExitCode::CameraNotFound, "no camera found");

    std::string serial = cameras.front().serialNumber;
    if (!options_.serial.empty()) {
        std::vector<std::string> present;
        bool found = false;
        for (const auto& info : cameras) {
            present.push_back(info.serialNumber);
            found = found || info.serialNumber == options_.serial;
        }
        if (!found)
            throw ToolError(ExitCode::CameraNotFound,
                            (boost::format("no camera with serial '%s'; cameras present: %s") % options_.serial %
                             boost::algorithm::join(present, ", "))
                                .str());
        serial = options_.serial;
    }

    const bool opened = guarded("initializeCamera", [&] { return driver.initializeCamera(serial.c_str()); });
    if (!opened)
        throw ToolError(ExitCode::DriverError,
                        (boost::format("initializeCamera refused camera '%s'") % serial).str());
    camera_.markOpened();

    // setMode, not the colour-mode key: only setMode sends the pixel format.
    if (!options_.mode.empty()) guarded("setMode", [&] { driver.setMode(parseMode(options_.mode)); });
    const auto apply = [&](const Tavri::TSettings& settings) {
        if (!guarded("updateSettings", [&] { return driver.updateSettings(settings); }))
            throw ToolError(ExitCode::DriverError, "updateSettings refused the settings: camera not initialised");
    };
    if (tree) apply(*tree);
    if (!options_.sets.empty()) apply(settingsFromAssignments(options_.sets));
    return driver;
}

void withSession(const GlobalOptions& options, const std::function<void(Session&)>& body) {
    // Bad --set values are a usage error, found before anything is loaded.
    settingsFromAssignments(options.sets);
    exportEnvironment(options);
    Session session(options, pluginPath(options));
    guarded("driver error", [&] { body(session); });
}

}  // namespace TeliGrab
