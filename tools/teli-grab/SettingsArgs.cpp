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

CheckedSettings settingsFromAssignments(const std::vector<std::string>& texts) {
    std::vector<SettingValue> values;
    for (const auto& text : texts) {
        const auto assignment = parseAssignment(text);
        SettingValue value;
        value.key = assignment.key;
        value.kind = assignment.isNumber ? SettingValue::Kind::Number : SettingValue::Kind::Word;
        value.number = assignment.number;
        value.word = assignment.word;
        value.where = (boost::format("--set '%s'") % text).str();
        values.push_back(value);
    }
    return checkSettings(values, ExitCode::Usage);
}

}  // namespace TeliGrab
