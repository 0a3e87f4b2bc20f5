#pragma once

#include <string>
#include <vector>

#include "SettingsCheck.h"

namespace TeliGrab {

// One --set Key=Value. A value that parses fully as a number is a number, else a word.
struct Assignment {
    std::string key;
    bool isNumber = false;
    double number = 0.0;
    std::string word;
};

// Throws ToolError(Usage) for a text without "=" or with an empty key.
Assignment parseAssignment(const std::string& text);

// The assignments as one checked settings tree, later ones overriding earlier ones;
// any fault is a usage error (ToolError(Usage)) naming the assignment.
CheckedSettings settingsFromAssignments(const std::vector<std::string>& texts);

}  // namespace TeliGrab
