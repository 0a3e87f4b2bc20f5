// Exposure, gain, black level and the balance ratios: the camera's numeric controls.

#include <arv.h>

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/CameraFeatures.h"
#include "sdk/aravis/FeatureAccess.h"

namespace Tavri::aravis::features {

using namespace detail;

namespace {

const char* balanceEntry(std::uint32_t selector) {
    switch (selector) {
    case BalanceSelector::Red: return "Red";
    case BalanceSelector::Blue: return "Blue";
    default: return nullptr;
    }
}

Result selectBalance(ArvCamera* camera, std::uint32_t selector, const char*& valueFeature) {
    const char* entry = balanceEntry(selector);
    if (!entry) return AravisResult::ValueNotSupported;
    if (const Result r = setEntry(camera, "BalanceRatioSelector", entry)) return r;
    return requireEither(camera, "BalanceRatio", "BalanceRatioAbs", &valueFeature);
}

// The current and the older name of each numeric control's feature.
struct Names {
    const char* primary;
    const char* fallback;
};
constexpr Names kExposure{"ExposureTime", "ExposureTimeAbs"};
constexpr Names kGain{"Gain", "GainRaw"};
constexpr Names kBlackLevel{"BlackLevel", "BlackLevelRaw"};

Result require(ArvCamera* camera, const Names& names, const char** chosen = nullptr) {
    return requireEither(camera, names.primary, names.fallback, chosen);
}

}  // namespace

// Aravis's helpers choose between the current and the older feature names
// (ExposureTime or ExposureTimeAbs, Gain or GainRaw, BlackLevel or BlackLevelRaw);
// the checks in front only turn "neither exists" into FeatureMissing.
Result getExposureTime(ArvCamera* camera, double& value) {
    if (const Result r = require(camera, kExposure)) return r;
    return run([&](GError** e) { value = arv_camera_get_exposure_time(camera, e); });
}

Result setExposureTime(ArvCamera* camera, double value) {
    if (const Result r = require(camera, kExposure)) return r;
    return writeFeature("ExposureTime", numberText(value),
                        [&](GError** e) { arv_camera_set_exposure_time(camera, value, e); });
}

Result getGain(ArvCamera* camera, double& value) {
    if (const Result r = require(camera, kGain)) return r;
    return run([&](GError** e) { value = arv_camera_get_gain(camera, e); });
}

Result setGain(ArvCamera* camera, double value) {
    if (const Result r = require(camera, kGain)) return r;
    return writeFeature("Gain", numberText(value), [&](GError** e) { arv_camera_set_gain(camera, value, e); });
}

Result getBlackLevel(ArvCamera* camera, double& value) {
    if (const Result r = require(camera, kBlackLevel)) return r;
    return run([&](GError** e) { value = arv_camera_get_black_level(camera, e); });
}

Result setBlackLevel(ArvCamera* camera, double value) {
    if (const Result r = require(camera, kBlackLevel)) return r;
    return writeFeature("BlackLevel", numberText(value),
                        [&](GError** e) { arv_camera_set_black_level(camera, value, e); });
}

Result getBalanceRatio(ArvCamera* camera, std::uint32_t selector, double& value) {
    const char* feature = nullptr;
    if (const Result r = selectBalance(camera, selector, feature)) return r;
    return run([&](GError** e) { value = arv_camera_get_float(camera, feature, e); });
}

Result setBalanceRatio(ArvCamera* camera, std::uint32_t selector, double value) {
    const char* feature = nullptr;
    if (const Result r = selectBalance(camera, selector, feature)) return r;
    return writeFeature(feature, numberText(value),
                        [&](GError** e) { arv_camera_set_float(camera, feature, value, e); });
}

Result detail::numericFeature(ArvCamera* camera, Control control, const char*& feature) {
    switch (control) {
    case Control::ExposureTime: return require(camera, kExposure, &feature);
    case Control::Gain: return require(camera, kGain, &feature);
    case Control::BlackLevel: return require(camera, kBlackLevel, &feature);
    case Control::RedBalance: return selectBalance(camera, BalanceSelector::Red, feature);
    case Control::BlueBalance: return selectBalance(camera, BalanceSelector::Blue, feature);
    }
    return AravisResult::ValueNotSupported;
}

}  // namespace Tavri::aravis::features
