#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace TeliGrab {

// How long to wait for one image: positive milliseconds, or "none" for no limit.
// Whatever it is, the tool waits in short slices, so --seconds and Ctrl-C still end
// the command.
struct Timeout {
    std::string text = "2000";
    std::optional<int> milliseconds() const;  // empty for "none"
    std::string describe() const;             // "2000 ms" or "no limit"
};

// Refuses NaN and the infinities: NaN passes every range check, since each comparison
// with it is false.
CLI::Validator finiteNumber();

// Adds --timeout to `command`, refusing anything but a positive integer or "none".
CLI::Option* addTimeoutOption(CLI::App& command, Timeout& timeout, const std::string& help);

}  // namespace TeliGrab
