#include "Timeout.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace TeliGrab {

namespace {

const char* const kNoLimit = "none";

std::optional<int> parsePositive(const std::string& text) {
    if (text.empty() || text.size() > 9) return std::nullopt;
    for (char c : text)
        if (c < '0' || c > '9') return std::nullopt;
    const int value = std::stoi(text);
    return value > 0 ? std::optional<int>(value) : std::nullopt;
}

}  // namespace

std::optional<int> Timeout::milliseconds() const { return text == kNoLimit ? std::nullopt : parsePositive(text); }

std::string Timeout::describe() const { return text == kNoLimit ? "no limit" : text + " ms"; }

CLI::Validator finiteNumber() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            char* end = nullptr;
            const double value = std::strtod(text.c_str(), &end);
            if (!text.empty() && *end == '\0' && std::isfinite(value)) return {};
            return "'" + text + "' is not a finite number";
        },
        "NUMBER");
}

CLI::Option* addTimeoutOption(CLI::App& command, Timeout& timeout, const std::string& help) {
    return command.add_option("--timeout", timeout.text, help + ": positive milliseconds up to 999999999, or 'none'")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                if (text == kNoLimit || parsePositive(text)) return {};
                return "'" + text + "' is neither a positive number of milliseconds nor 'none'";
            },
            "MS|none"));
}

}  // namespace TeliGrab
