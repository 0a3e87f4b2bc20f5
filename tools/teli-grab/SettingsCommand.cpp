#include <iostream>
#include <memory>

#include "Commands.h"
#include "Session.h"
#include "SettingsCheck.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

void printSettings(Tavri::CameraDriver& camera) { std::cout << camera.settings().toJson() << '\n'; }

}  // namespace

void addSettingsCommands(CLI::App& app, const GlobalOptions& options) {
    auto* show = app.add_subcommand("settings", "Print the camera's settings tree as JSON (after --settings, --set and --mode)");
    show->callback([&options] { withSession(options, [](Session& session) { printSettings(session.open()); }); });

    auto file = std::make_shared<std::string>();
    auto* apply = app.add_subcommand(
        "apply", "Apply a JSON settings file (after --settings, before --set), and print the settings tree that results");
    apply->add_option("file", *file, "settings tree as JSON, as `settings` prints it")->required();
    apply->callback([&options, file] {
        // Read before the plug-in is loaded: a bad file is reported without touching a camera.
        const auto tree = loadSettingsFile(*file);
        withSession(options, [&tree](Session& session) {
            printSettings(session.open(&tree));
        });
    });
}

}  // namespace TeliGrab
