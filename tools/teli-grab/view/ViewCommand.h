#pragma once

#include <CLI/CLI.hpp>

#include "Options.h"

namespace TeliGrab {

// `teli-grab view [--listen ADDRESS:PORT] [--token TOKEN]`: a live view of
// the camera in the browser until Ctrl-C.
void addViewCommand(CLI::App& app, const GlobalOptions& options);

}  // namespace TeliGrab
