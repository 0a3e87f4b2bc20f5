#include "Session.h"

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "settings/SettingsOld.h"

#include "CameraChecks.h"
#include "DriverLogTap.h"
#include "Interrupt.h"
#include "PluginLocation.h"
#include "RangeText.h"
#include "ReadBack.h"
#include "SettingsArgs.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

std::string pluginPath(const GlobalOptions& options) {
    if (!options.plugin.empty()) return options.plugin;
    // Beside teli-grab in a build tree, else where an install puts it.
    return defaultPluginPath(std::filesystem::path(PluginLibrary::defaultPath()).parent_path()).string();
}

Tavri::ImageType parseMode(const std::string& word) {
    if (word == "gray") return Tavri::ImageType::Gray;
    if (word == "color") return Tavri::ImageType::Color;
    return Tavri::ImageType::Raw;
}

}  // namespace

void exportEnvironment(const GlobalOptions& options) {
    if (!options.sdk.empty()) setenv("TAVRI_TELI_SDK", options.sdk.c_str(), 1);
    if (!options.rig.empty()) setenv("TAVRI_SIM_RIG", options.rig.c_str(), 1);
    if (!options.logLevel.empty()) setenv("TAVRI_LOG_LEVEL", options.logLevel.c_str(), 1);
}

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

Session::Session(const GlobalOptions& options, const std::string& pluginPath, std::vector<CheckedSettings> given)
    : options_(options), given_(std::move(given)), library_(pluginPath), lifetime_(library_), camera_(library_) {}

std::vector<std::string> Session::applyAndReadBack(const CheckedSettings& settings) {
    apply(camera(), settings);
    return valuesNotKept(settings.values, guarded("settings", [&] { return camera().settings(); }),
                         settingRanges(camera()));
}

void Session::apply(Tavri::CameraDriver& driver, const CheckedSettings& settings) {
    bool updated = false;
    try {
        updated = guarded("updateSettings", [&] { return driver.updateSettings(settings.tree); });
    } catch (const ToolError& error) {
        // The driver names the control it could not set, not the value's fault.
        const auto outside = valuesOutOfRange(settings.values, settingRanges(driver));
        if (outside.empty()) throw;
        throw ToolError(error.code(), std::string(error.what()) + ": " + boost::algorithm::join(outside, "; "));
    }
    if (!updated) throw ToolError(ExitCode::DriverError, "updateSettings refused the settings: camera not initialised");
    // The colour-mode key changes only the driver's record; setMode sends the pixel
    // format, so the camera delivers what the key says.
    if (settings.has(SettingsOld::Camera::ColorMode)) guarded("setMode", [&] { driver.setMode(driver.getMode()); });
}

std::vector<std::string> Session::listedSerials() {
    auto& driver = camera();
    const auto cameras = guarded("getInfoInternalCameras", [&] { return driver.getInfoInternalCameras(); });
    if (cameras.empty()) throw ToolError(ExitCode::CameraNotFound, noCameraText(driver));
    std::vector<std::string> serials;
    for (const auto& info : cameras) serials.push_back(info.serialNumber);
    return serials;
}

std::vector<std::string> Session::chosenSerials(bool several) {
    const auto present = listedSerials();
    if (!several && (options_.all || options_.serials.size() > 1))
        throw ToolError(ExitCode::Usage, "several cameras (--all, --serial twice) are taken by stream, view and "
                                         "sequence without --per-image-times only");
    if (options_.all) return present;
    if (options_.serials.empty()) return {present.front()};
    for (const auto& serial : options_.serials) {
        if (std::find(present.begin(), present.end(), serial) == present.end())
            throw ToolError(ExitCode::CameraNotFound,
                            (boost::format("no camera with serial '%s'; cameras present: %s") % serial %
                             boost::algorithm::join(present, ", "))
                                .str());
    }
    return options_.serials;
}

Tavri::CameraDriver& Session::open(const CheckedSettings* tree) {
    return openAs(camera_, chosenSerials(false).front(), tree);
}

std::vector<Session::OpenCamera> Session::openAll() {
    const auto serials = chosenSerials(true);
    std::vector<OpenCamera> opened;
    for (const auto& serial : serials) {
        CameraObject* object = &camera_;
        if (!opened.empty()) {
            more_.push_back(std::make_unique<CameraObject>(library_));
            object = more_.back().get();
        }
        opened.push_back({serial, &openAs(*object, serial, nullptr)});
    }
    return opened;
}

Tavri::CameraDriver& Session::openAs(CameraObject& object, const std::string& serial, const CheckedSettings* tree) {
    auto& driver = object.driver();
    bool opened = false;
    {
        // The backend may tell the cause of a refused open only in its log (a camera
        // another program holds); the error carries it.
        DriverLogTap tap;
        try {
            opened = guarded("initializeCamera", [&] { return driver.initializeCamera(serial.c_str()); });
        } catch (const ToolError& error) {
            const auto told = tap.failures();
            if (told.empty()) throw;
            throw ToolError(error.code(), std::string(error.what()) + " (" + told.front() + ")");
        }
    }
    if (!opened)
        throw ToolError(ExitCode::DriverError,
                        (boost::format("initializeCamera refused camera '%s'") % serial).str());
    object.markOpened();

    throwIfInterrupted();

    // --settings, the command's file, then --set: given_ ends with --set.
    std::vector<const CheckedSettings*> order;
    for (const auto& settings : given_) order.push_back(&settings);
    if (tree) order.insert(given_.empty() ? order.end() : order.end() - 1, tree);
    std::vector<SettingValue> asked;
    for (const auto* settings : order) {
        apply(driver, *settings);
        asked.insert(asked.end(), settings->values.begin(), settings->values.end());
    }
    if (!options_.mode.empty()) guarded("setMode", [&] { driver.setMode(parseMode(options_.mode)); });

    const auto notKept =
        valuesNotKept(asked, guarded("settings", [&] { return driver.settings(); }), settingRanges(driver));
    if (!notKept.empty() && options_.strict)
        throw ToolError(ExitCode::BadSettingsFile,
                        "the camera did not keep what was asked (--strict): " + boost::algorithm::join(notKept, "; "));
    for (const auto& line : notKept) std::cerr << "teli-grab: warning: " << line << '\n';
    return driver;
}

void withSession(const GlobalOptions& options, const std::function<void(Session&)>& body) {
    // A bad settings file or --set value is found before anything is loaded.
    std::vector<CheckedSettings> given;
    if (!options.settingsFile.empty()) given.push_back(loadSettingsFile(options.settingsFile));
    given.push_back(settingsFromAssignments(options.sets));
    exportEnvironment(options);
    throwIfInterrupted();
    Session session(options, pluginPath(options), std::move(given));
    guarded("driver error", [&] { body(session); });
    throwIfInterrupted();
}

}  // namespace TeliGrab
