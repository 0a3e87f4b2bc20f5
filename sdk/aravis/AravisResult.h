#pragma once
// Result codes of the Aravis backend, by the names its code uses: the shared numbering
// of sdk/SdkResult.h (one code per cause across every backend; the backend's own
// causes lie in 300 - 399). What each name stands for here:
//
// | name               | code | cause                                                       |
// |--------------------|------|-------------------------------------------------------------|
// | Success            |    0 |                                                             |
// | AlreadyInitialized |    2 | sdkInitialize called again (success)                        |
// | CameraAlreadyOpen  |    4 | sdkOpenCamera of a camera this process holds open (success; |
// |                    |      | the new handle shares the connection)                       |
// | NotResponding      |   19 | control channel time-out, camera gone, heartbeat lost       |
// | NoCompletedRequest |   20 | no completed request is waiting                             |
// | InvalidArgument    |  101 | null out-pointer, null or empty request buffer              |
// | InvalidHandle      |  102 | null or unknown camera, stream or request handle            |
// | InvalidIndex       |  103 | camera index not below the last enumerated count            |
// | StreamAlreadyOpen  |  104 | the camera handle already has an open stream                |
// | RequestBusy        |  105 | request already waiting on the stream, or still queued when |
// |                    |      | released                                                    |
// | ImageTooLarge      |  106 | frame larger than the request buffer (nothing was overrun)  |
// | ValueOutOfRange    |  107 | the camera refused the number as out of its range           |
// | ValueNotSupported  |  108 | the feature has no entry for the value (FallingEdge, RGB8,  |
// |                    |      | a trigger line, an unknown trigger-source code)             |
// | AccessDenied       |  109 | feature not writable now, read only, or another controller  |
// | FeatureMissing     |  300 | the camera has no GenICam feature for the operation         |
// | DeviceError        |  301 | protocol or transfer error other than a time-out            |
// | OpenFailed         |  302 | the camera could not be opened (not found, no GenICam data) |
// | StreamFailed       |  303 | the stream could not be created                             |
// | ImageIncomplete    |  304 | frame completed with missing or out-of-order packets        |
// | ImageTimeout       |  305 | frame not completed within the stream's frame time-out      |
// | ImageAborted       |  306 | frame cut off by a stop or flush                            |
// | ImageFailed        |  307 | any other non-success frame status                          |
// | GenICamError       |  308 | any other GenICam evaluation error                          |
// | WrongFeatureType   |  309 | the feature exists with a type the operation cannot use     |
// | InvalidSetting     |  310 | a TAVRI_ARAVIS_* transport variable holds a value it does   |
// |                    |      | not allow (TransportSettings.h); the camera is not opened   |

#include "sdk/TeliSdk.h"

namespace Tavri::aravis::AravisResult {
constexpr Result Success = SdkResult::Success;
constexpr Result AlreadyInitialized = SdkResult::AlreadyInitialized;
constexpr Result CameraAlreadyOpen = SdkResult::CameraAlreadyOpen;
constexpr Result NotResponding = SdkResult::NotResponding;
constexpr Result NoCompletedRequest = SdkResult::NoCompletedRequest;
constexpr Result InvalidArgument = SdkResult::InvalidArgument;
constexpr Result InvalidHandle = SdkResult::InvalidHandle;
constexpr Result InvalidIndex = SdkResult::IndexOutOfRange;
constexpr Result StreamAlreadyOpen = SdkResult::StreamAlreadyOpen;
constexpr Result RequestBusy = SdkResult::RequestBusy;
constexpr Result ImageTooLarge = SdkResult::FrameTooLarge;
constexpr Result ValueOutOfRange = SdkResult::ValueOutOfRange;
constexpr Result ValueNotSupported = SdkResult::ValueNotSupported;
constexpr Result AccessDenied = SdkResult::AccessDenied;
constexpr Result FeatureMissing = SdkResult::AravisFeatureMissing;
constexpr Result DeviceError = SdkResult::AravisDeviceError;
constexpr Result OpenFailed = SdkResult::AravisOpenFailed;
constexpr Result StreamFailed = SdkResult::AravisStreamFailed;
constexpr Result ImageIncomplete = SdkResult::AravisImageIncomplete;
constexpr Result ImageTimeout = SdkResult::AravisImageTimeout;
constexpr Result ImageAborted = SdkResult::AravisImageAborted;
constexpr Result ImageFailed = SdkResult::AravisImageFailed;
constexpr Result GenICamError = SdkResult::AravisGenICamError;
constexpr Result WrongFeatureType = SdkResult::AravisWrongFeatureType;
constexpr Result InvalidSetting = SdkResult::AravisInvalidSetting;
}  // namespace Tavri::aravis::AravisResult
