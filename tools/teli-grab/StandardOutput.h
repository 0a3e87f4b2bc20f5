#pragma once

#include <string>

namespace TeliGrab {

// Standard output through a buffer of the tool's own that writes to file descriptor 1
// and keeps the reason of the first write that failed: output lost on a full disk or a
// closed pipe must end the tool with that reason, never pass as success.
void checkStandardOutput();

// Flushes standard output; empty when everything written reached it, else the system's
// reason for the first write that did not.
std::string standardOutputFailure();

}  // namespace TeliGrab
