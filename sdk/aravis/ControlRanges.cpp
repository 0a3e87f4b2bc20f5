#include "sdk/aravis/ControlRanges.h"

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/FeatureAccess.h"
#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis::features {
namespace {

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

}  // namespace

bool controlRange(ArvCamera* camera, Control control, ControlRange& range) {
    const char* feature = nullptr;
    return detail::numericFeature(camera, control, feature) == AravisResult::Success &&
           featureRange(camera, feature, range);
}

}  // namespace Tavri::aravis::features
