#include "RangeText.h"

#include <algorithm>
#include <boost/format.hpp>

#include "settings/CameraSettings.h"

namespace TeliGrab {

namespace {

const SettingRange* find(const std::vector<SettingRange>& ranges, const std::string& key) {
    const auto found =
        std::find_if(ranges.begin(), ranges.end(), [&](const SettingRange& range) { return range.key == key; });
    return found == ranges.end() ? nullptr : &*found;
}

template <typename Visit>
void forNumericKeys(const Tavri::TSettings& current, Visit&& visit) {
    for (const auto& setting : CameraSettings::table())
        if (setting.numeric && current.has(setting.key)) visit(setting.key, current[setting.key].toDouble());
}

}  // namespace

std::vector<SettingRange> settingRanges(Tavri::CameraDriver& camera) {
    auto* source = dynamic_cast<Tavri::SettingRangeSource*>(&camera);
    return source ? source->settingRanges() : std::vector<SettingRange>{};
}

std::string describeRange(const SettingRange& range) {
    const auto span = (boost::format("%.10g to %.10g") % range.min % range.max).str();
    return range.increment > 0 ? span + (boost::format(" in steps of %.10g") % range.increment).str() : span;
}

std::string rangeNote(const std::vector<SettingRange>& ranges, const std::string& key) {
    const auto* range = find(ranges, key);
    return range ? " (the camera takes " + describeRange(*range) + ")" : std::string();
}

std::vector<std::string> unavailableKeys(const Tavri::TSettings& current, const std::vector<SettingRange>& ranges) {
    std::vector<std::string> keys;
    if (ranges.empty()) return keys;
    forNumericKeys(current, [&](const std::string& key, double) {
        if (!find(ranges, key)) keys.push_back(key);
    });
    return keys;
}

std::string rangesTable(const Tavri::TSettings& current, const std::vector<SettingRange>& ranges) {
    boost::format row("%-18s %12s %12s %12s %10s\n");
    std::string table = (row % "KEY" % "VALUE" % "MIN" % "MAX" % "INCREMENT").str();
    const auto unavailable = unavailableKeys(current, ranges);
    forNumericKeys(current, [&](const std::string& key, double value) {
        const auto number = [](double v) { return (boost::format("%.10g") % v).str(); };
        if (std::count(unavailable.begin(), unavailable.end(), key)) {
            table += (boost::format("%-18s not available on this camera\n") % key).str();
        } else if (const auto* range = find(ranges, key)) {
            table += (row % key % number(value) % number(range->min) % number(range->max) %
                      (range->increment > 0 ? number(range->increment) : "-"))
                         .str();
        } else {
            table += (row % key % number(value) % "unknown" % "unknown" % "unknown").str();
        }
    });
    return table;
}

}  // namespace TeliGrab
