#include "sdk/aravis/ErrorMapping.h"

#include "sdk/aravis/AravisResult.h"

namespace Tavri::aravis {

Result resultFromError(const GError* error) {
    if (!error) return AravisResult::Success;
    if (error->domain == ARV_DEVICE_ERROR) {
        switch (error->code) {
        case ARV_DEVICE_ERROR_TIMEOUT:
        case ARV_DEVICE_ERROR_NOT_CONNECTED:
            return AravisResult::NotResponding;
        case ARV_DEVICE_ERROR_FEATURE_NOT_FOUND:
            return AravisResult::FeatureMissing;
        case ARV_DEVICE_ERROR_WRONG_FEATURE:
            return AravisResult::WrongFeatureType;
        case ARV_DEVICE_ERROR_NOT_CONTROLLER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_BUSY:
            return AravisResult::AccessDenied;
        case ARV_DEVICE_ERROR_NOT_FOUND:
        case ARV_DEVICE_ERROR_GENICAM_NOT_FOUND:
        case ARV_DEVICE_ERROR_INVALID_PARAMETER:
            return AravisResult::OpenFailed;
        case ARV_DEVICE_ERROR_NO_STREAM_CHANNEL:
            return AravisResult::StreamFailed;
        default:
            return AravisResult::DeviceError;
        }
    }
    if (error->domain == ARV_GC_ERROR) {
        switch (error->code) {
        case ARV_GC_ERROR_NODE_NOT_FOUND:
        case ARV_GC_ERROR_PROPERTY_NOT_DEFINED:
            return AravisResult::FeatureMissing;
        case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
        case ARV_GC_ERROR_EMPTY_ENUMERATION:
            return AravisResult::ValueNotSupported;
        case ARV_GC_ERROR_OUT_OF_RANGE:
            return AravisResult::ValueOutOfRange;
        case ARV_GC_ERROR_READ_ONLY:
            return AravisResult::AccessDenied;
        default:
            return AravisResult::GenICamError;
        }
    }
    return AravisResult::DeviceError;
}

Result resultFromBufferStatus(ArvBufferStatus status) {
    switch (status) {
    case ARV_BUFFER_STATUS_SUCCESS:
        return AravisResult::Success;
    case ARV_BUFFER_STATUS_MISSING_PACKETS:
    case ARV_BUFFER_STATUS_WRONG_PACKET_ID:
        return AravisResult::ImageIncomplete;
    case ARV_BUFFER_STATUS_TIMEOUT:
        return AravisResult::ImageTimeout;
    case ARV_BUFFER_STATUS_SIZE_MISMATCH:
        return AravisResult::ImageTooLarge;
    case ARV_BUFFER_STATUS_ABORTED:
    case ARV_BUFFER_STATUS_CLEARED:
        return AravisResult::ImageAborted;
    default:
        return AravisResult::ImageFailed;
    }
}

const char* bufferStatusName(ArvBufferStatus status) {
    switch (status) {
    case ARV_BUFFER_STATUS_SUCCESS: return "";
    case ARV_BUFFER_STATUS_CLEARED: return "cleared";
    case ARV_BUFFER_STATUS_TIMEOUT: return "timeout";
    case ARV_BUFFER_STATUS_MISSING_PACKETS: return "missing packets";
    case ARV_BUFFER_STATUS_WRONG_PACKET_ID: return "wrong packet id";
    case ARV_BUFFER_STATUS_SIZE_MISMATCH: return "size mismatch";
    case ARV_BUFFER_STATUS_FILLING: return "filling";
    case ARV_BUFFER_STATUS_ABORTED: return "aborted";
    default: return "unknown buffer status";
    }
}

}  // namespace Tavri::aravis
