#include "SettingsCheck.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/format.hpp>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>

#include "settings/SettingsOld.h"

namespace TeliGrab {

namespace {

namespace Camera = SettingsOld::Camera;

}  // namespace

const std::vector<KeyRule>& settingRules() {
    static const std::vector<KeyRule> known{
        {SettingsOld::ExposureTime, true, {}},
        {Camera::Gain, true, {}},
        {Camera::BlackLevel, true, {}},
        {SettingsOld::RedBalance, true, {}},
        {SettingsOld::BlueBalance, true, {}},
        {Camera::ColorMode,
         false,
         {Camera::ColorModeValues::Gray, Camera::ColorModeValues::Color, Camera::ColorModeValues::Raw}},
        {Camera::TriggerType,
         false,
         {Camera::TriggerTypeValues::Hardware, Camera::TriggerTypeValues::Software,
          Camera::TriggerTypeValues::NoTrigger}},
        {Camera::TriggerPolarity,
         false,
         {Camera::TriggerPolarityValues::FallingEdge, Camera::TriggerPolarityValues::RisingEdge}},
        // Described but read-only: accepted so that a saved tree applies as it is.
        {Camera::BayerLayout, false, {}},
    };
    return known;
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
    if (!rule->words.empty() && std::none_of(rule->words.begin(), rule->words.end(), [&](const std::string& w) {
            return boost::algorithm::icontains(value.word, w);
        }))
        refuse(code, value,
               (boost::format("%s: '%s' is none of %s") % value.key % value.word % words).str());
}

// An iterator over the file's text that remembers the last character the JSON parser
// read, which is how a key's line and column are found.
struct TrackingIterator {
    using iterator_category = std::forward_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    const char* at;
    const char** lastRead;

    reference operator*() const {
        *lastRead = at;
        return *at;
    }
    TrackingIterator& operator++() {
        ++at;
        return *this;
    }
    TrackingIterator operator++(int) {
        auto before = *this;
        ++at;
        return before;
    }
    bool operator==(const TrackingIterator& other) const { return at == other.at; }
    bool operator!=(const TrackingIterator& other) const { return at != other.at; }
};

// Collects the leaves of a settings file with the position of each one's key.
class Reader : public nlohmann::json_sax<nlohmann::json> {
public:
    Reader(const std::string& fileName, const std::string& text) : fileName_(fileName), text_(text) {}

    const char* lastRead = nullptr;
    std::vector<SettingValue> values;

    bool null() override { return other("null"); }
    bool boolean(bool value) override { return other(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return number(static_cast<double>(value)); }
    bool number_unsigned(number_unsigned_t value) override { return number(static_cast<double>(value)); }
    bool number_float(number_float_t value, const string_t&) override { return number(value); }
    bool string(string_t& value) override {
        if (ignoredDepth_ > 0) return true;
        return leaf(SettingValue::Kind::Word, 0.0, value);
    }
    bool binary(binary_t&) override { return other("binary data"); }

    bool start_object(std::size_t) override {
        if (ignoredDepth_ > 0) return ++ignoredDepth_, true;
        if (groups_.empty()) {
            groups_.push_back({"", where(0)});
            return true;
        }
        if (groups_.back().wordObject) {
            other("a group");
            ++ignoredDepth_;
            return true;
        }
        groups_.push_back({keyPath(), keyWhere_});
        return true;
    }
    bool key(string_t& name) override {
        if (ignoredDepth_ > 0) return true;
        const auto closingQuote = static_cast<std::size_t>(lastRead - text_.data());
        special_ = name == "$value" || name == "$range" ? name : "";
        if (!special_.empty()) {
            groups_.back().wordObject = true;
            return true;
        }
        key_ = name;
        keyWhere_ = where(openingQuote(closingQuote));
        return true;
    }
    bool end_object() override {
        if (ignoredDepth_ > 0) return --ignoredDepth_, true;
        groups_.pop_back();
        special_.clear();
        return true;
    }
    bool start_array(std::size_t) override {
        if (ignoredDepth_ > 0 || special_ == "$range") return ++ignoredDepth_, true;
        other("an array");
        ++ignoredDepth_;
        return true;
    }
    bool end_array() override {
        --ignoredDepth_;
        return true;
    }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override {
        // nlohmann's text starts with its own tag and a position; keep what it says.
        std::string reason = std::regex_replace(error.what(), std::regex(R"(^\[json\.exception\.[a-z_]+\.[0-9]+\] )"), "");
        reason = std::regex_replace(reason, std::regex(R"(^parse error at line [0-9]+, column [0-9]+: )"), "");
        // An overflowing number is a value fault: name its key, where the key stands.
        if (!key_.empty() && !groups_.empty() && reason.find("number overflow") != std::string::npos)
            throw ToolError(ExitCode::BadSettingsFile, keyWhere_ + ": " + keyPath() + ": " + reason);
        throw ToolError(ExitCode::BadSettingsFile, where(position > 0 ? position - 1 : 0) + ": " + reason);
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
    std::string where(std::size_t offset) const {
        offset = std::min(offset, text_.size());
        const auto lineStart = text_.rfind('\n', offset == 0 ? 0 : offset - 1);
        const long line = 1 + std::count(text_.begin(), text_.begin() + static_cast<long>(offset), '\n');
        const auto column = offset - (lineStart == std::string::npos || offset == 0 ? 0 : lineStart + 1) + 1;
        return (boost::format("%s:%d:%d") % fileName_ % line % column).str();
    }
    std::size_t openingQuote(std::size_t closing) const {
        for (std::size_t i = closing; i-- > 0;) {
            if (text_[i] != '"') continue;
            std::size_t slashes = 0;
            while (i > slashes && text_[i - 1 - slashes] == '\\') ++slashes;
            if (slashes % 2 == 0) return i;
        }
        return 0;
    }
    bool number(double value) {
        if (ignoredDepth_ > 0) return true;
        return leaf(SettingValue::Kind::Number, value, (boost::format("%g") % value).str());
    }
    bool other(const std::string& what) {
        if (ignoredDepth_ > 0) return true;
        return leaf(SettingValue::Kind::Other, 0.0, what);
    }
    bool leaf(SettingValue::Kind kind, double number, const std::string& word) {
        if (groups_.empty()) throw ToolError(ExitCode::BadSettingsFile, where(0) + ": a settings file holds one JSON object");
        const auto& group = groups_.back();
        if (group.wordObject) {
            if (special_ == "$value") values.push_back({group.path, kind, number, word, group.where});
            return true;
        }
        values.push_back({keyPath(), kind, number, word, keyWhere_});
        return true;
    }

    const std::string& fileName_;
    const std::string& text_;
    std::vector<Group> groups_;
    std::string key_, keyWhere_, special_;
    int ignoredDepth_ = 0;
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

CheckedSettings loadSettingsFile(const std::string& fileName) {
    std::ifstream in(fileName, std::ios::binary);
    if (!in)
        throw ToolError(ExitCode::BadSettingsFile,
                        (boost::format("cannot read settings file '%s': %s") % fileName % std::strerror(errno)).str());
    // Bounded as the host's own loader is, so that a device or an endless pipe ends.
    std::string text(Tavri::TSettings::maxJsonBytes + 1, '\0');
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return parseSettingsText(text, fileName);
}

CheckedSettings parseSettingsText(const std::string& text, const std::string& origin) {
    if (text.size() > Tavri::TSettings::maxJsonBytes)
        throw ToolError(ExitCode::BadSettingsFile, (boost::format("settings file '%s' holds more than %d bytes") %
                                                    origin % Tavri::TSettings::maxJsonBytes)
                                                       .str());
    Reader reader(origin, text);
    const char* begin = text.data();
    nlohmann::json::sax_parse(TrackingIterator{begin, &reader.lastRead}, TrackingIterator{begin + text.size(), &reader.lastRead},
                              &reader);
    return checkSettings(reader.values, ExitCode::BadSettingsFile);
}

}  // namespace TeliGrab
