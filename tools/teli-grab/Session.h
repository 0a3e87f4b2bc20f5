#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Options.h"
#include "SettingsCheck.h"
#include "ToolError.h"
#include "TavriAPI/CameraDriver.h"
#include "platform/PluginLibrary.h"

namespace TeliGrab {

using Tavri::platform::PluginLibrary;

// The driver and the simulator read TAVRI_TELI_SDK, TAVRI_SIM_RIG and TAVRI_LOG_LEVEL
// when they start, so the options set them before the plug-in is loaded.
void exportEnvironment(const GlobalOptions& options);

// Calls into the plug-in; a throw becomes a ToolError while the plug-in is loaded.
template <typename Call>
auto guarded(const char* what, Call&& call) -> decltype(call()) {
    try {
        return call();
    } catch (const ToolError&) {
        throw;
    } catch (const std::exception& error) {
        throw ToolError(ExitCode::DriverError, std::string(what) + ": " + error.what());
    } catch (...) {
        throw ToolError(ExitCode::DriverError, std::string(what) + ": unknown exception");
    }
}

// initializeDriver on construction, releaseDriver on destruction.
class DriverLifetime {
public:
    explicit DriverLifetime(const PluginLibrary& library);
    ~DriverLifetime();
    DriverLifetime(const DriverLifetime&) = delete;
    DriverLifetime& operator=(const DriverLifetime&) = delete;

private:
    TavriReleaseDriverFn release_;
};

// The camera object from createCamera: releaseCamera (when it was opened), then delete.
class CameraObject {
public:
    explicit CameraObject(const PluginLibrary& library);
    ~CameraObject();
    CameraObject(const CameraObject&) = delete;
    CameraObject& operator=(const CameraObject&) = delete;

    Tavri::CameraDriver& driver() { return *camera_; }
    void markOpened() { opened_ = true; }

private:
    std::unique_ptr<Tavri::CameraDriver> camera_;
    bool opened_ = false;
};

// A loaded plug-in with one camera object. Members are torn down in reverse order:
// release the camera, delete the object, releaseDriver, dlclose.
class Session {
public:
    // Loads the plug-in at `pluginPath`; the driver's environment is already set, and
    // the settings from --settings and --set are checked.
    Session(const GlobalOptions& options, const std::string& pluginPath, std::vector<CheckedSettings> given);

    Tavri::CameraDriver& camera() { return camera_.driver(); }

    // Opens the camera named by --serial (or the first listed), then applies --settings,
    // `tree` when given, --set and --mode, in that order, and reads the numeric values
    // back: one the camera did not keep is a warning, or with --strict
    // ToolError(BadSettingsFile). Unknown serial: ToolError(CameraNotFound) listing the
    // serials present.
    // Several --serial (or --all) are refused here: ToolError(Usage).
    Tavri::CameraDriver& open(const CheckedSettings* tree = nullptr);

    struct OpenCamera {
        std::string serial;
        Tavri::CameraDriver* driver;
    };
    // Opens every camera --serial names (or all listed with --all; else the first), one
    // camera object each, with the same settings as open() applies; the first is camera().
    std::vector<OpenCamera> openAll();

    // On the open camera: applies `settings` (checked already) and reads the numeric
    // values back; the lines of valuesNotKept, empty when the camera kept them all.
    std::vector<std::string> applyAndReadBack(const CheckedSettings& settings);

private:
    void apply(Tavri::CameraDriver& driver, const CheckedSettings& settings);
    std::vector<std::string> listedSerials();
    std::vector<std::string> chosenSerials(bool several);
    Tavri::CameraDriver& openAs(CameraObject& object, const std::string& serial, const CheckedSettings* tree);

    const GlobalOptions& options_;
    std::vector<CheckedSettings> given_;
    PluginLibrary library_;
    DriverLifetime lifetime_;
    CameraObject camera_;
    std::vector<std::unique_ptr<CameraObject>> more_;  // the other cameras of openAll
};

// Runs `body` on a fresh session. Every exception is turned into a ToolError before the
// plug-in is unloaded, since its type information and text may live in the plug-in.
void withSession(const GlobalOptions& options, const std::function<void(Session&)>& body);

}  // namespace TeliGrab
