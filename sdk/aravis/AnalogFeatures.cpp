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
    bool present = false;
    if (const Result r = probe(camera, "BalanceRatio", present)) return r;
    valueFeature = "BalanceRatio";
    if (present) return AravisResult::Success;
    if (const Result r = probe(camera, "BalanceRatioAbs", present)) return r;
    valueFeature = "BalanceRatioAbs";
    if (present) return AravisResult::Success;
    note("the camera has neither BalanceRatio nor BalanceRatioAbs");
    return AravisResult::FeatureMissing;
}

}  // namespace

// Aravis's helpers choose between the current and the older feature names
// (ExposureTime or ExposureTimeAbs, Gain or GainRaw, BlackLevel or BlackLevelRaw);
// the checks in front only turn "neither exists" into FeatureMissing.
Result getExposureTime(ArvCamera* camera, double& value) {
    if (const Result r = requireEither(camera, "ExposureTime", "ExposureTimeAbs")) return r;
    return run([&](GError** e) { value = arv_camera_get_exposure_time(camera, e); });
}

Result setExposureTime(ArvCamera* camera, double value) {
    if (const Result r = requireEither(camera, "ExposureTime", "ExposureTimeAbs")) return r;
    return writeFeature("ExposureTime", numberText(value),
                        [&](GError** e) { arv_camera_set_exposure_time(camera, value, e); });
}

Result getGain(ArvCamera* camera, double& value) {
    if (const Result r = requireEither(camera, "Gain", "GainRaw")) return r;
    return run([&](GError** e) { value = arv_camera_get_gain(camera, e); });
}

Result setGain(ArvCamera* camera, double value) {
    if (const Result r = requireEither(camera, "Gain", "GainRaw")) return r;
    return writeFeature("Gain", numberText(value), [&](GError** e) { arv_camera_set_gain(camera, value, e); });
}

Result getBlackLevel(ArvCamera* camera, double& value) {
    if (const Result r = requireEither(camera, "BlackLevel", "BlackLevelRaw")) return r;
    return run([&](GError** e) { value = arv_camera_get_black_level(camera, e); });
}

Result setBlackLevel(ArvCamera* camera, double value) {
    if (const Result r = requireEither(camera, "BlackLevel", "BlackLevelRaw")) return r;
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

}  // namespace Tavri::aravis::features
