#include "SettingsArgs.h"

#include <boost/format.hpp>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "ToolError.h"

namespace TeliGrab {

namespace {

// strtod accepts leading blanks, "nan" and "inf"; a settings value of those is meant
// as a word, so only finite numbers with nothing around them count.
bool parseNumber(const std::string& text, double& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return false;
    errno = 0;
    char* end = nullptr;
    const double parsed = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(parsed)) return false;
    value = parsed;
    return true;
}

}  // namespace

Assignment parseAssignment(const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw ToolError(ExitCode::Usage,
                        (boost::format("--set expects Key=Value, got '%s'") % text).str());
    Assignment assignment;
    assignment.key = text.substr(0, equals);
    assignment.word = text.substr(equals + 1);
    assignment.isNumber = parseNumber(assignment.word, assignment.number);
    return assignment;
}

Tavri::TSettings settingsFromAssignments(const std::vector<std::string>& texts) {
    Tavri::TSettings tree;
    for (const auto& text : texts) {
        const auto assignment = parseAssignment(text);
        try {
            if (assignment.isNumber)
                tree.addDouble(assignment.key, assignment.number, "");
            else
                tree.addString(assignment.key, assignment.word, "");
        } catch (const std::exception& error) {
            // A key that is a group elsewhere in the tree ("Camera=1" after "Camera/Gain=2").
            throw ToolError(ExitCode::Usage, (boost::format("--set '%s': %s") % text % error.what()).str());
        }
    }
    return tree;
}

}  // namespace TeliGrab
