#pragma once
// Translation of Aravis failures into the backend's result codes.

#include <arv.h>

#include "sdk/TeliSdk.h"

namespace Tavri::aravis {

// Result for a GError of an Aravis call; Success for null.
Result resultFromError(const GError* error);

// Result for a completed buffer's status; Success only for ARV_BUFFER_STATUS_SUCCESS.
Result resultFromBufferStatus(ArvBufferStatus status);
// Aravis's name of a buffer status, for a person ("missing packets"); static storage.
const char* bufferStatusName(ArvBufferStatus status);

}  // namespace Tavri::aravis
