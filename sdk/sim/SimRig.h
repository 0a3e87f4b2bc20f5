#pragma once
// The rig file: a JSON description of the simulated rig (examples:
// sdk/sim/rigs/default.json and faulty.json). Every key is optional and unknown keys
// are refused:
//   seed, frameRate, render (false: benchmark mode), drawScene (false: stamps only),
//   projector {rate, grayBits, phaseSteps, phasePeriod, pulseWidthMs,
//              drives [serials] (default: both default cameras, or none when the
//              file lists its cameras), freeRunning},
//   cameras [{serial, model, vendor, width, height, widthIncrement, heightIncrement,
//             pixelFormats ["Mono8", "RGB8", "BayerBG8" or PFNC numbers],
//             exposure|gain|blackLevel|balanceRatio {min, max, increment, initial},
//             frameRate, condition ("normal", "hung", "dead", "unplugged"),
//             unplugAfterFrames,
//             frameFaults [{kind ("drop", "late", "burst", "oversize", "missedPulse",
//                           "doublePulse", "stale"), first, count,
//                           every, delayMs, burst, extraBytes}]}]  (default: two cameras)
//   faults [{operation, code, when ("once", "always", "call"), call}].
// Values must lie in the ranges of sdk/sim/SimConfig.h.
//
// A hostile file never takes the host down: a file larger than kMaxRigFileBytes (read
// no further than one byte past it, whatever the file is), nesting deeper
// than kMaxRigDepth and numbers that overflow a double are refused like any other
// mistake, with RuntimeException "<source>:<line>:<column>: <what>". No recursion
// depends on the input, and reading is linear in the file's size.

#include <cstddef>
#include <string>

#include "sdk/sim/SimConfig.h"

namespace Tavri::sim {

constexpr std::size_t kMaxRigFileBytes = 1 << 20;  // 1 MiB: a rig of 256 cameras needs far less
constexpr std::size_t kMaxRigDepth = 16;           // a rig file nests 5 levels deep

// Parses a rig description; `sourceName` names the text in messages. Throws
// RuntimeException "<sourceName>:<line>:<column>: <what>" for malformed JSON and for a
// wrong value alike (the value's position and JSON pointer).
RigConfig parseRig(const std::string& text, const std::string& sourceName);
RigConfig loadRigFile(const std::string& path);
// The rig TAVRI_SIM_RIG names, or the default rig when it is unset or empty.
RigConfig rigFromEnvironment();

}  // namespace Tavri::sim
