#pragma once

#include <CLI/CLI.hpp>

#include "Options.h"

namespace TeliGrab {

// Each adds one subcommand to `app`; the subcommand runs when parsing succeeds and
// reports failures as ToolError.
void addListCommand(CLI::App& app, const GlobalOptions& options);
void addSettingsCommands(CLI::App& app, const GlobalOptions& options);
void addGrabCommand(CLI::App& app, const GlobalOptions& options);
void addSequenceCommand(CLI::App& app, const GlobalOptions& options);
void addStreamCommand(CLI::App& app, const GlobalOptions& options);

}  // namespace TeliGrab
