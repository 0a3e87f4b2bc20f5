#include "sdk/aravis/ControlRanges.h"

#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis::features {
namespace {

bool available(ArvCamera* camera, const char* feature) {
    GErrorSlot error;
    return arv_camera_is_feature_available(camera, feature, error.out()) && !error;
}

// GenICam leaves a float's step out when it has none; Aravis then answers a tiny one.
double step(double increment) { return increment > 1e-12 ? increment : 0.0; }

bool featureRange(ArvCamera* camera, const char* feature, ControlRange& range) {
    ArvGcNode* node = arv_device_get_feature(arv_camera_get_device(camera), feature);
    GErrorSlot error, noStep;
    if (ARV_IS_GC_FLOAT(node)) {
        arv_camera_get_float_bounds(camera, feature, &range.min, &range.max, error.out());
        range.increment = step(arv_camera_get_float_increment(camera, feature, noStep.out()));
    } else if (ARV_IS_GC_INTEGER(node)) {
        gint64 min = 0, max = 0;
        arv_camera_get_integer_bounds(camera, feature, &min, &max, error.out());
        range = {static_cast<double>(min), static_cast<double>(max),
                 static_cast<double>(arv_camera_get_integer_increment(camera, feature, noStep.out()))};
    } else {
        return false;
    }
    if (noStep) range.increment = 0.0;
    return !error;
}

// The control's feature is the first of the two names the camera has, as its accessors
// read it.
bool firstRange(ArvCamera* camera, const char* primary, const char* fallback, ControlRange& range) {
    const char* feature = available(camera, primary) ? primary : available(camera, fallback) ? fallback : nullptr;
    return feature && featureRange(camera, feature, range);
}

bool balanceRange(ArvCamera* camera, const char* entry, ControlRange& range) {
    if (!available(camera, "BalanceRatioSelector")) return false;
    GErrorSlot error;
    arv_camera_set_string(camera, "BalanceRatioSelector", entry, error.out());
    return !error && firstRange(camera, "BalanceRatio", "BalanceRatioAbs", range);
}

}  // namespace

bool controlRange(ArvCamera* camera, Control control, ControlRange& range) {
    switch (control) {
    case Control::ExposureTime: return firstRange(camera, "ExposureTime", "ExposureTimeAbs", range);
    case Control::Gain: return firstRange(camera, "Gain", "GainRaw", range);
    case Control::BlackLevel: return firstRange(camera, "BlackLevel", "BlackLevelRaw", range);
    case Control::RedBalance: return balanceRange(camera, "Red", range);
    case Control::BlueBalance: return balanceRange(camera, "Blue", range);
    }
    return false;
}

}  // namespace Tavri::aravis::features
