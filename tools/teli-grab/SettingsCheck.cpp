#include "SettingsCheck.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "Interrupt.h"
#include "TavriCommon/JsonText.h"
#include "settings/CameraSettings.h"

namespace TeliGrab {

const std::vector<KeyRule>& settingRules() {
    static const std::vector<KeyRule> rules = [] {
        std::vector<KeyRule> fromTable;
        // A read-only word is described but has no words to be written with.
        for (const auto& row : CameraSettings::table())
            fromTable.push_back({row.key, row.numeric, row.writable ? row.words : std::vector<std::string>{}});
        return fromTable;
    }();
    return rules;
}

namespace {

[[noreturn]] void refuse(ExitCode code, const SettingValue& value, const std::string& reason) {
    throw ToolError(code, (boost::format("%s: %s") % value.where % reason).str());
}

void check(const SettingValue& value, ExitCode code) {
    const auto& known = settingRules();
    const auto rule = std::find_if(known.begin(), known.end(), [&](const KeyRule& r) { return r.key == value.key; });
    if (rule == known.end()) {
        const bool group = std::any_of(known.begin(), known.end(),
                                       [&](const KeyRule& r) { return r.key.rfind(value.key + "/", 0) == 0; });
        refuse(code, value,
               group ? (boost::format("'%s' is a group of settings, not a value") % value.key).str()
                     : (boost::format("unknown key '%s'; known keys: %s") % value.key % knownKeys()).str());
    }
    const auto words = boost::algorithm::join(rule->words, ", ");
    if (rule->numeric) {
        if (value.kind == SettingValue::Kind::Word)
            refuse(code, value, (boost::format("%s must be a finite number, not '%s'") % value.key % value.word).str());
        if (value.kind == SettingValue::Kind::Other)
            refuse(code, value, (boost::format("%s must be a number, not %s") % value.key % value.word).str());
        if (!std::isfinite(value.number))
            refuse(code, value, (boost::format("%s must be a finite number") % value.key).str());
        return;
    }
    if (value.kind != SettingValue::Kind::Word)
        refuse(code, value,
               (boost::format("%s must be a word%s, not %s") % value.key %
                (words.empty() ? std::string() : " (" + words + ")") %
                (value.kind == SettingValue::Kind::Number ? (boost::format("%g") % value.number).str() : value.word))
                   .str());
    if (!rule->words.empty() && CameraSettings::namedWord(rule->words, value.word) < 0)
        refuse(code, value,
               (boost::format("%s: '%s' is none of %s") % value.key % value.word % words).str());
}

// Collects the leaves of a settings file with the position of each one's key.
class Reader : public Tavri::Json::Events {
public:
    Reader(const std::string& fileName, const std::string& text) : fileName_(fileName), parse_(text) {}

    std::vector<SettingValue> read() {
        parse_.run(*this);
        return std::move(values_);
    }

    void null() override { other("null"); }
    void boolean(bool value) override { other(value ? "true" : "false"); }
    void number(double value) override {
        if (ignoredDepth_ == 0) leaf(SettingValue::Kind::Number, value, (boost::format("%g") % value).str());
    }
    void string(std::string& value) override {
        if (ignoredDepth_ == 0) leaf(SettingValue::Kind::Word, 0.0, value);
    }

    void startObject() override {
        if (ignoredDepth_ > 0) {
            ++ignoredDepth_;
        } else if (groups_.empty()) {
            groups_.push_back({"", where(0)});
        } else if (groups_.back().wordObject) {
            other("a group");
            ++ignoredDepth_;
        } else {
            groups_.push_back({keyPath(), keyWhere_});
        }
    }
    void key(std::string& name) override {
        if (ignoredDepth_ > 0) return;
        // A long check ends on the first signal, as every command does.
        if (++keys_ % 4096 == 0) throwIfInterrupted();
        special_ = name == "$value" || name == "$range" ? name : "";
        if (!special_.empty()) {
            groups_.back().wordObject = true;
            return;
        }
        key_ = std::move(name);
        keyWhere_ = where(parse_.tokenStart());
    }
    void endObject() override {
        if (ignoredDepth_ > 0) {
            --ignoredDepth_;
            return;
        }
        groups_.pop_back();
        special_.clear();
    }
    void startArray() override {
        if (ignoredDepth_ == 0 && special_ != "$range") other("an array");
        ++ignoredDepth_;
    }
    void endArray() override { --ignoredDepth_; }

    [[noreturn]] void refuse(const Tavri::Json::Refusal& refusal) override {
        // An overflowing number is a value fault: name its key, where the key stands.
        if (refusal.kind == Tavri::Json::Refusal::Kind::NumberOverflow && !key_.empty() && !groups_.empty())
            throw ToolError(ExitCode::BadSettingsFile, keyWhere_ + ": " + keyPath() + ": " + refusal.reason);
        throw ToolError(ExitCode::BadSettingsFile, where(refusal.offset) + ": " + refusal.reason);
    }

private:
    struct Group {
        std::string path;
        std::string where;
        bool wordObject = false;
    };

    std::string keyPath() const {
        const auto& parent = groups_.back().path;
        return parent.empty() ? key_ : parent + "/" + key_;
    }
    std::string where(std::size_t offset) {
        const auto at = parse_.position(offset);
        return fileName_ + ":" + std::to_string(at.line) + ":" + std::to_string(at.column);
    }
    void other(const std::string& what) {
        if (ignoredDepth_ == 0) leaf(SettingValue::Kind::Other, 0.0, what);
    }
    void leaf(SettingValue::Kind kind, double number, const std::string& word) {
        if (groups_.empty()) throw ToolError(ExitCode::BadSettingsFile, where(0) + ": a settings file holds one JSON object");
        const auto& group = groups_.back();
        if (group.wordObject) {
            if (special_ == "$value") values_.push_back({group.path, kind, number, word, group.where});
            return;
        }
        values_.push_back({keyPath(), kind, number, word, keyWhere_});
    }

    const std::string& fileName_;
    Tavri::Json::Parse parse_;
    std::vector<SettingValue> values_;
    std::vector<Group> groups_;
    std::string key_, keyWhere_, special_;
    int ignoredDepth_ = 0;
    std::size_t keys_ = 0;
};

}  // namespace

bool CheckedSettings::has(const std::string& key) const {
    return std::any_of(values.begin(), values.end(), [&](const SettingValue& v) { return v.key == key; });
}

std::string knownKeys() {
    std::vector<std::string> keys;
    for (const auto& rule : settingRules()) keys.push_back(rule.key);
    return boost::algorithm::join(keys, ", ");
}

CheckedSettings checkSettings(const std::vector<SettingValue>& values, ExitCode code) {
    CheckedSettings checked;
    for (const auto& value : values) {
        check(value, code);
        if (value.kind == SettingValue::Kind::Number)
            checked.tree.addDouble(value.key, value.number, "");
        else
            checked.tree.addString(value.key, value.word, "");
        checked.values.push_back(value);
    }
    return checked;
}

namespace {
[[noreturn]] void tooLarge(const std::string& origin) {
    throw ToolError(ExitCode::BadSettingsFile,
                    (boost::format("settings file '%s' holds more than %d bytes") % origin % Tavri::TSettings::maxJsonBytes)
                        .str());
}
}  // namespace

CheckedSettings loadSettingsFile(const std::string& fileName) {
    // Bounded as the host's own loader is, so that a device or an endless pipe ends.
    const auto file = Tavri::Json::readFile(fileName, Tavri::TSettings::maxJsonBytes);
    using Outcome = Tavri::Json::FileText::Outcome;
    if (file.outcome == Outcome::CannotOpen || file.outcome == Outcome::ReadFailed)
        throw ToolError(ExitCode::BadSettingsFile,
                        (boost::format("cannot read settings file '%s': %s") % fileName % std::strerror(file.error)).str());
    if (file.outcome == Outcome::TooLarge) tooLarge(fileName);
    return parseSettingsText(file.text, fileName);
}

CheckedSettings parseSettingsText(const std::string& text, const std::string& origin) {
    if (text.size() > Tavri::TSettings::maxJsonBytes) tooLarge(origin);
    throwIfInterrupted();
    const auto values = Reader(origin, text).read();
    throwIfInterrupted();
    return checkSettings(values, ExitCode::BadSettingsFile);
}

}  // namespace TeliGrab
