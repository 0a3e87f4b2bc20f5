#include <iostream>
#include <memory>

#include "Commands.h"
#include "RangeText.h"
#include "Session.h"
#include "SettingsCheck.h"
#include "ToolError.h"

namespace TeliGrab {

namespace {

// The tree as JSON, which `apply` takes back; a control the camera does not have keeps
// its key there, so the tool says so beside it. With `ranges`, a table of each numeric
// key's value, min, max and increment instead.
void printSettings(Tavri::CameraDriver& camera, bool ranges) {
    const auto current = camera.settings();
    const auto known = settingRanges(camera);
    if (ranges) {
        std::cout << rangesTable(current, known);
        return;
    }
    std::cout << current.toJson() << '\n';
    for (const auto& key : unavailableKeys(current, known))
        std::cerr << "teli-grab: note: " << key << ": not available on this camera (its value means nothing)\n";
}

}  // namespace

void addSettingsCommands(CLI::App& app, const GlobalOptions& options) {
    auto* show = app.add_subcommand("settings", "Print the camera's settings tree as JSON (after --settings, --set and --mode)");
    auto ranges = std::make_shared<bool>(false);
    show->add_flag("--ranges", *ranges, "print each numeric setting's value, min, max and increment instead");
    show->callback([&options, ranges] {
        withSession(options, [&](Session& session) { printSettings(session.open(), *ranges); });
    });

    auto file = std::make_shared<std::string>();
    auto* apply = app.add_subcommand(
        "apply", "Apply a JSON settings file (after --settings, before --set), and print the settings tree that results");
    apply->add_option("file", *file, "settings tree as JSON, as `settings` prints it")->required();
    apply->callback([&options, file] {
        // Read before the plug-in is loaded: a bad file is reported without touching a camera.
        const auto tree = loadSettingsFile(*file);
        withSession(options, [&tree](Session& session) {
            printSettings(session.open(&tree), false);
        });
    });
}

}  // namespace TeliGrab
