#pragma once

#include <string>
#include <vector>

#include "TavriCommon/Settings.h"
#include "ToolError.h"

namespace TeliGrab {

// One value the user asked for, with where it was written ("a.json:3:5" or
// "--set 'Camera/Gain=3'") for the messages.
struct SettingValue {
    enum class Kind { Number, Word, Other };
    std::string key;
    Kind kind = Kind::Other;
    double number = 0.0;
    std::string word;  // the word, or for Other what was given instead ("true", "an array")
    std::string where;
};

// A key the driver's settings() describes and updateSettings reads: a number, or a
// word among `words` (the driver recognises a word when the value contains it,
// ignoring case); a word with no `words` is described but read-only.
struct KeyRule {
    std::string key;
    bool numeric;
    std::vector<std::string> words;
};
const std::vector<KeyRule>& settingRules();

// Settings the user asked for, checked against the keys the driver knows.
struct CheckedSettings {
    Tavri::TSettings tree;
    std::vector<SettingValue> values;  // in the order given
    bool has(const std::string& key) const;
};

// Every value must name a key the driver describes, be of its kind (a finite number,
// or a word the driver recognises) and not be a group. The first fault throws
// ToolError(`code`) naming where it was written, the key and, for an unknown key, the
// known ones. Nothing is applied before this has passed.
CheckedSettings checkSettings(const std::vector<SettingValue>& values, ExitCode code);

// Reads a JSON settings file as `settings` prints it (a word may be written as
// {"$value": word, "$range": [...]}) and checks it. Faults of syntax, overflowing
// numbers and of checkSettings throw ToolError(BadSettingsFile) with file:line:column.
CheckedSettings loadSettingsFile(const std::string& fileName);

// The same for JSON text already in memory; `origin` stands for the file name in the
// messages.
CheckedSettings parseSettingsText(const std::string& text, const std::string& origin);

// The keys the driver describes, comma separated.
std::string knownKeys();

}  // namespace TeliGrab
