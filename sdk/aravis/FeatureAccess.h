#pragma once
// The helpers the camera's control functions share: a failure noted for
// takeFailureNote, GError calls mapped to result codes, features probed and required.
// Every function expects the caller to hold the camera's feature lock.

#include <arv.h>
#include <boost/format.hpp>

#include <string>

#include "sdk/ControlRanges.h"
#include "sdk/TeliSdk.h"
#include "sdk/aravis/ErrorMapping.h"
#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis::features::detail {

// Notes why the last control call on this thread failed.
void note(const std::string& why);
std::string numberText(double value);

// Runs one Aravis write and, when the camera refuses it, notes the feature, the value
// and Aravis's reason.
template <typename Call>
Result writeFeature(const char* feature, const std::string& value, Call&& call) {
    GErrorSlot error;
    call(error.out());
    const Result result = resultFromError(error.get());
    if (result) note((boost::format("%s = %s refused: %s") % feature % value % error.message()).str());
    return result;
}

// Runs one Aravis call that reports through a GError and maps the outcome.
template <typename Call>
Result run(Call&& call) {
    GErrorSlot error;
    call(error.out());
    return resultFromError(error.get());
}

Result probe(ArvCamera* camera, const char* feature, bool& present);
Result setEntry(ArvCamera* camera, const char* feature, const char* entry);
// FeatureMissing, noted, when the camera lacks the feature (or both features).
Result requireFeature(ArvCamera* camera, const char* feature);
// The first of the two the camera has goes to `chosen` when given.
Result requireEither(ArvCamera* camera, const char* primary, const char* fallback, const char** chosen = nullptr);

// The feature that holds a numeric control on this camera (for a balance ratio, with
// its selector set): the one its accessors read and write.
Result numericFeature(ArvCamera* camera, Control control, const char*& feature);

}  // namespace Tavri::aravis::features::detail
