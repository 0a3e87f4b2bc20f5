#include <iostream>
#include <memory>

#include "Commands.h"
#include "Session.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

void printSettings(Tavri::CameraDriver& camera) { std::cout << camera.settings().toJson() << '\n'; }

// Read before the plug-in is loaded: a bad file is reported without touching a camera.
Tavri::TSettings loadSettingsFile(const std::string& fileName) {
    try {
        return Tavri::TSettings::loadJson(fileName);
    } catch (const std::exception& error) {
        throw ToolError(ExitCode::BadSettingsFile, error.what());
    }
}

}  // namespace

void addSettingsCommands(CLI::App& app, const GlobalOptions& options) {
    auto* show = app.add_subcommand("settings", "Print the camera's settings tree as JSON (after --mode and --set)");
    show->callback([&options] { withSession(options, [](Session& session) { printSettings(session.open()); }); });

    auto file = std::make_shared<std::string>();
    auto* apply = app.add_subcommand(
        "apply", "Apply a JSON settings file (then --set), and print the settings tree that results");
    apply->add_option("file", *file, "settings tree as JSON, as `settings` prints it")->required();
    apply->callback([&options, file] {
        const auto tree = loadSettingsFile(*file);
        withSession(options, [&tree](Session& session) {
            printSettings(session.open(&tree));
        });
    });
}

}  // namespace TeliGrab
