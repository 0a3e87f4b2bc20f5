#pragma once

#include <CLI/CLI.hpp>

#include "Options.h"

namespace TeliGrab {

// `teli-grab view [--listen ADDRESS:PORT] [--token TOKEN] [--serial S]... [--all]`: a
// live view of the camera, or of several side by side, in the browser until Ctrl-C.
void addViewCommand(CLI::App& app, const GlobalOptions& options);

}  // namespace TeliGrab
