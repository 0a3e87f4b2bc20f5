#include "ReadBack.h"

#include "RangeText.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>

namespace TeliGrab {

namespace {

constexpr double kRelativeRounding = 0.01;
constexpr double kAbsoluteRounding = 0.13;

bool kept(double asked, double current) {
    return std::abs(current - asked) <= std::max(kAbsoluteRounding, kRelativeRounding * std::abs(asked));
}

}  // namespace

std::vector<std::string> valuesNotKept(const std::vector<SettingValue>& asked, const Tavri::TSettings& current,
                                       const std::vector<Tavri::SettingRange>& ranges) {
    std::map<std::string, double> last;
    std::vector<std::string> order;
    for (const auto& value : asked) {
        if (value.kind != SettingValue::Kind::Number) continue;
        if (!last.count(value.key)) order.push_back(value.key);
        last[value.key] = value.number;
    }
    std::vector<std::string> lines;
    for (const auto& key : order) {
        if (!current.has(key)) continue;
        const double now = current[key].toDouble();
        if (!kept(last[key], now))
            lines.push_back((boost::format("%s: asked %g, camera kept %s%s") % key % last[key] %
                             nlohmann::json(now).dump() % rangeNote(ranges, key))
                                .str());
    }
    return lines;
}

std::vector<std::string> valuesOutOfRange(const std::vector<SettingValue>& asked,
                                          const std::vector<Tavri::SettingRange>& ranges) {
    std::vector<std::string> lines;
    for (const auto& value : asked) {
        if (value.kind != SettingValue::Kind::Number) continue;
        for (const auto& range : ranges)
            if (range.key == value.key && (value.number < range.min || value.number > range.max))
                lines.push_back((boost::format("%s %.10g is outside the camera's range %s") % value.key % value.number %
                                 describeRange(range))
                                    .str());
    }
    return lines;
}

}  // namespace TeliGrab
