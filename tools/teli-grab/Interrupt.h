#pragma once

#include "ToolError.h"

namespace TeliGrab {

// SIGINT, SIGTERM, SIGHUP and SIGPIPE only set a flag: every command looks at it between
// its waits, ends what it started, releases the camera and the driver, and leaves with
// 128 + the signal's number.
// A second signal ends the process at once, for a driver call that does not return.
void installInterruptHandlers();

// 0 while no signal arrived, else the signal's number.
int interruptSignal();

// ToolError(Interrupted, Terminated, HungUp or BrokenPipe) when a signal arrived.
void throwIfInterrupted();

}  // namespace TeliGrab
