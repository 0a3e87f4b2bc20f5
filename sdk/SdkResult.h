#pragma once
// One numbering of result codes for every backend, so a number in a log line names
// one cause whichever backend answered it. Ranges:
//
// |   range | whose                                                                  |
// |---------|------------------------------------------------------------------------|
// |  0 - 99 | the vendor SDK's: 0, 2, 4, 19 and 20 are the codes the driver gives a   |
// |         | meaning to; the vendor DLL's others pass through unchanged              |
// | 100-199 | causes every backend may report, each with one code                    |
// | 200-299 | the simulated rig's own causes (sdk/sim)                               |
// | 300-399 | the Aravis backend's own causes (sdk/aravis)                           |
// | 400-499 | the stand-in vendor DLL's own causes (sdk/teli/standin)                |
//
// An injected fault (simulator, test fake) returns whatever code its test chose.

#include <cstdint>

namespace Tavri {

using Result = std::uint32_t;

namespace SdkResult {
// ---- The vendor SDK's codes the driver knows (0 - 99)
constexpr Result Success = 0;
constexpr Result AlreadyInitialized = 2;  // sdkInitialize again: also success
constexpr Result CameraAlreadyOpen = 4;   // sdkOpenCamera of an open camera: also success, a second handle
constexpr Result NotResponding = 19;      // the camera does not answer (time-out, gone, hung)
constexpr Result NoCompletedRequest = 20; // sdkTakeCompletedRequest: nothing left to take

// ---- Shared causes (100 - 199)
constexpr Result NotInitialized = 100;    // a call before sdkInitialize or after sdkTerminate
constexpr Result InvalidArgument = 101;   // a required pointer is null, or a request buffer null or empty
constexpr Result InvalidHandle = 102;     // a null handle, or one this backend never handed out
constexpr Result IndexOutOfRange = 103;   // camera index not below the camera count
constexpr Result StreamAlreadyOpen = 104; // sdkOpenStream on a camera whose stream is open
constexpr Result RequestBusy = 105;       // enqueue or release of a request that is queued, in flight or completed
constexpr Result FrameTooLarge = 106;     // take: the frame did not fit its request's buffer (nothing was overrun)
constexpr Result ValueOutOfRange = 107;   // a number below the feature's minimum or above its maximum
constexpr Result ValueNotSupported = 108; // a value the camera does not offer (pixel format, trigger source or
                                          // activation, balance selector)
constexpr Result AccessDenied = 109;      // control refused: a read-only handle, or another controller holds it

// ---- The simulated rig's own causes (200 - 299)
constexpr Result SimClosedHandle = 200;          // handed out once, closed or released since
constexpr Result SimWrongHandleKind = 201;       // e.g. a stream handle where a camera handle belongs
constexpr Result SimCameraUnplugged = 202;       // the camera was unplugged
constexpr Result SimRequestOfOtherStream = 203;  // a request handle used with another stream
constexpr Result SimValueNotFinite = 204;        // NaN or infinite feature value
constexpr Result SimValueNotOnIncrement = 205;   // width or height not a multiple of its increment
constexpr Result SimInvalidTriggerSequence = 206; // trigger sequence above the camera's maximum
constexpr Result SimSoftwareTriggerNotSelected = 207; // software trigger while the source is not 64
constexpr Result SimLockedWhileAcquiring = 208;  // width, height or pixel format change during acquisition
constexpr Result SimTooManyRequests = 209;       // more requests on one stream than the rig allows

// ---- The Aravis backend's own causes (300 - 399)
constexpr Result AravisFeatureMissing = 300;  // the camera has no GenICam feature for the operation
constexpr Result AravisDeviceError = 301;     // protocol or transfer error other than a time-out
constexpr Result AravisOpenFailed = 302;      // the camera could not be opened (not found, no GenICam data)
constexpr Result AravisStreamFailed = 303;    // the stream could not be created
constexpr Result AravisImageIncomplete = 304; // frame completed with missing or out-of-order packets
constexpr Result AravisImageTimeout = 305;    // frame not completed within the stream's frame time-out
constexpr Result AravisImageAborted = 306;    // frame cut off by a stop or flush
constexpr Result AravisImageFailed = 307;     // any other non-success frame status
constexpr Result AravisGenICamError = 308;    // any other GenICam evaluation error
constexpr Result AravisWrongFeatureType = 309; // the feature exists with a type the operation cannot use
constexpr Result AravisInvalidSetting = 310;  // a TAVRI_ARAVIS_* transport variable holds a value it does not allow

// ---- The stand-in vendor DLL's own causes (400 - 499)
constexpr Result StandInRigUnavailable = 400;    // the rig (TAVRI_SIM_RIG) could not be built
constexpr Result StandInUnexpectedException = 401; // the rig threw where it returns codes

// Short English name of a code of this numbering ("FrameTooLarge"); "Unknown" for any
// other.
constexpr const char* name(Result code) {
    switch (code) {
    case Success: return "Success";
    case AlreadyInitialized: return "AlreadyInitialized";
    case CameraAlreadyOpen: return "CameraAlreadyOpen";
    case NotResponding: return "NotResponding";
    case NoCompletedRequest: return "NoCompletedRequest";
    case NotInitialized: return "NotInitialized";
    case InvalidArgument: return "InvalidArgument";
    case InvalidHandle: return "InvalidHandle";
    case IndexOutOfRange: return "IndexOutOfRange";
    case StreamAlreadyOpen: return "StreamAlreadyOpen";
    case RequestBusy: return "RequestBusy";
    case FrameTooLarge: return "FrameTooLarge";
    case ValueOutOfRange: return "ValueOutOfRange";
    case ValueNotSupported: return "ValueNotSupported";
    case AccessDenied: return "AccessDenied";
    case SimClosedHandle: return "ClosedHandle";
    case SimWrongHandleKind: return "WrongHandleKind";
    case SimCameraUnplugged: return "CameraUnplugged";
    case SimRequestOfOtherStream: return "RequestOfOtherStream";
    case SimValueNotFinite: return "ValueNotFinite";
    case SimValueNotOnIncrement: return "ValueNotOnIncrement";
    case SimInvalidTriggerSequence: return "InvalidTriggerSequence";
    case SimSoftwareTriggerNotSelected: return "SoftwareTriggerNotSelected";
    case SimLockedWhileAcquiring: return "LockedWhileAcquiring";
    case SimTooManyRequests: return "TooManyRequests";
    case AravisFeatureMissing: return "FeatureMissing";
    case AravisDeviceError: return "DeviceError";
    case AravisOpenFailed: return "OpenFailed";
    case AravisStreamFailed: return "StreamFailed";
    case AravisImageIncomplete: return "ImageIncomplete";
    case AravisImageTimeout: return "ImageTimeout";
    case AravisImageAborted: return "ImageAborted";
    case AravisImageFailed: return "ImageFailed";
    case AravisInvalidSetting: return "InvalidSetting";
    case AravisGenICamError: return "GenICamError";
    case AravisWrongFeatureType: return "WrongFeatureType";
    case StandInRigUnavailable: return "RigUnavailable";
    case StandInUnexpectedException: return "UnexpectedException";
    default: return "Unknown";
    }
}
}  // namespace SdkResult

}  // namespace Tavri
