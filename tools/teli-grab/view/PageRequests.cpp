#include "view/PageRequests.h"

#include <array>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/format.hpp>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "SettingsCheck.h"
#include "settings/CameraSettings.h"
#include "settings/SettingsOld.h"

namespace TeliGrab::View {

namespace {

// The page's controls: every key the driver reads, the read-only ones left out.
const std::vector<KeyRule>& controls() {
    static const std::vector<KeyRule> list = [] {
        std::vector<KeyRule> writable;
        for (const auto& rule : settingRules())
            if (rule.numeric || !rule.words.empty()) writable.push_back(rule);
        return writable;
    }();
    return list;
}

const KeyRule* findControl(const std::string& key) {
    for (const auto& control : controls())
        if (control.key == key) return &control;
    return nullptr;
}

std::string knownKeys() {
    std::vector<std::string> keys;
    for (const auto& control : controls()) keys.push_back(control.key);
    return boost::algorithm::join(keys, ", ");
}

Tavri::ImageType modeOfWord(const std::string& word) {
    namespace V = SettingsOld::Camera::ColorModeValues;
    if (word == V::Gray) return Tavri::ImageType::Gray;
    if (word == V::Color) return Tavri::ImageType::Color;
    return Tavri::ImageType::Raw;
}

}  // namespace

SettingsChange parseSettingsChange(const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    if (json.is_discarded() || !json.is_object() || json.empty())
        throw RequestError("expected a JSON object of settings, e.g. {\"ExposureTime\": 5000}");

    SettingsChange change;
    for (const auto& [key, value] : json.items()) {
        const KeyRule* control = findControl(key);
        if (!control) throw RequestError((boost::format("unknown setting '%s'; known: %s") % key % knownKeys()).str());
        if (control->numeric) {
            if (!value.is_number() || !std::isfinite(value.get<double>()))
                throw RequestError((boost::format("%s must be a number, got %s") % key % value.dump()).str());
            change.tree.addDouble(key, value.get<double>(), "");
            change.hasTreeKeys = true;
            continue;
        }
        const std::string word = value.is_string() ? value.get<std::string>() : std::string();
        if (std::find(control->words.begin(), control->words.end(), word) == control->words.end())
            throw RequestError((boost::format("%s must be one of %s, got %s") % key %
                                boost::algorithm::join(control->words, ", ") % value.dump())
                                   .str());
        if (key == SettingsOld::Camera::ColorMode) {
            change.mode = modeOfWord(word);
        } else {
            change.tree.addString(key, word, "");
            change.hasTreeKeys = true;
        }
    }
    return change;
}

SettingsChange parseSettingsFile(const std::string& text) {
    SettingsChange change;
    try {
        change.tree = Tavri::TSettings::fromJson(text, "settings file");
    } catch (const std::exception& error) {
        throw RequestError(error.what());
    }
    for (const auto& control : controls()) change.hasTreeKeys = change.hasTreeKeys || change.tree.has(control.key);
    if (!change.hasTreeKeys)
        throw RequestError("the settings file holds none of the camera's settings (" + knownKeys() + ")");

    // The driver matches the colour-mode word leniently; the same match picks the
    // pixel format, and a value it would refuse is left to the driver to refuse.
    const std::string& key = SettingsOld::Camera::ColorMode;
    if (change.tree.has(key) && change.tree[key].isString()) {
        const std::string value = change.tree[key].toString();
        for (const auto& word : findControl(key)->words)
            if (boost::algorithm::icontains(value, word)) {
                change.mode = modeOfWord(word);
                break;
            }
    }
    return change;
}

int parseWholeNumber(const std::string& text, const char* what, int lowest, int highest) {
    const auto refuse = [&] {
        return RequestError(
            (boost::format("%s must be a whole number from %d to %d, got '%s'") % what % lowest % highest % text)
                .str());
    };
    if (text.empty() || text.size() > 4 || !std::all_of(text.begin(), text.end(), [](unsigned char c) {
            return std::isdigit(c);
        }))
        throw refuse();
    const int number = std::stoi(text);
    if (number < lowest || number > highest) throw refuse();
    return number;
}

int parseSequenceCount(const std::string& text) {
    return parseWholeNumber(text, "the sequence length", 1, kMaxSequenceLength);
}

nlohmann::json controlsJson(const std::vector<Tavri::SettingRange>& ranges) {
    nlohmann::json controls = nlohmann::json::array();
    for (const auto& row : CameraSettings::table()) {
        nlohmann::json control{{"key", row.key},
                               {"kind", row.numeric ? "number" : "word"},
                               {"words", row.words},
                               {"writable", row.writable},
                               {"label", row.label}};
        for (const auto& range : ranges) {
            if (range.key != row.key) continue;
            control["min"] = range.min;
            control["max"] = range.max;
            if (range.increment > 0) control["increment"] = range.increment;
        }
        controls.push_back(std::move(control));
    }
    return {{"controls", controls}};
}

}  // namespace TeliGrab::View
