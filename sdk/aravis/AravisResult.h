#pragma once
// Result codes of the Aravis backend: one distinct code per cause of failure, so a
// log line that carries the number tells what went wrong. 0, 19 and 20 keep the
// meanings the driver gives them; 2 and 4 are the two "also success" answers.
//
// | code | name                 | cause                                                       |
// |------|----------------------|-------------------------------------------------------------|
// |    0 | Success              |                                                             |
// |    2 | AlreadyInitialized   | sdkInitialize called again (success)                        |
// |    4 | CameraAlreadyOpen    | sdkOpenCamera of a camera this process holds open (success; |
// |      |                      | the new handle shares the connection)                       |
// |   19 | NotResponding        | control channel time-out, camera gone, heartbeat lost       |
// |   20 | NoCompletedRequest   | no completed request is waiting                             |
// |  101 | InvalidHandle        | null or unknown camera, stream or request handle            |
// |  102 | InvalidIndex         | camera index not below the last enumerated count            |
// |  103 | InvalidArgument      | null out-pointer, null or empty request buffer              |
// |  104 | FeatureMissing       | the camera has no GenICam feature for the operation         |
// |  105 | ValueNotSupported    | the feature has no entry for the value (FallingEdge, RGB8,  |
// |      |                      | a trigger line, an unknown trigger-source code)             |
// |  106 | ValueOutOfRange      | the camera refused the number as out of its range           |
// |  107 | AccessDenied         | feature not writable now, read only, or another controller  |
// |  108 | DeviceError          | protocol or transfer error other than a time-out            |
// |  109 | OpenFailed           | the camera could not be opened (not found, no GenICam data) |
// |  110 | StreamFailed         | the stream could not be created                             |
// |  111 | StreamAlreadyOpen    | the camera handle already has an open stream                |
// |  112 | RequestBusy          | request already waiting on the stream, or still queued when |
// |      |                      | released                                                    |
// |  113 | ImageIncomplete      | frame completed with missing or out-of-order packets        |
// |  114 | ImageTimeout         | frame not completed within the stream's frame time-out      |
// |  115 | ImageTooLarge        | frame larger than the request buffer (nothing was overrun)  |
// |  116 | ImageAborted         | frame cut off by a stop or flush                            |
// |  117 | ImageFailed          | any other non-success frame status                          |
// |  118 | GenICamError         | any other GenICam evaluation error                          |
// |  119 | WrongFeatureType     | the feature exists with a type the operation cannot use     |
// |  120 | InvalidSetting       | a TAVRI_ARAVIS_* transport variable holds a value it does   |
// |      |                      | not allow (TransportSettings.h); the camera is not opened   |

#include "sdk/TeliSdk.h"

namespace Tavri::aravis::AravisResult {
constexpr Result Success = SdkResult::Success;
constexpr Result AlreadyInitialized = SdkResult::AlreadyInitialized;
constexpr Result CameraAlreadyOpen = SdkResult::CameraAlreadyOpen;
constexpr Result NotResponding = SdkResult::NotResponding;
constexpr Result NoCompletedRequest = SdkResult::NoCompletedRequest;
constexpr Result InvalidHandle = 101;
constexpr Result InvalidIndex = 102;
constexpr Result InvalidArgument = 103;
constexpr Result FeatureMissing = 104;
constexpr Result ValueNotSupported = 105;
constexpr Result ValueOutOfRange = 106;
constexpr Result AccessDenied = 107;
constexpr Result DeviceError = 108;
constexpr Result OpenFailed = 109;
constexpr Result StreamFailed = 110;
constexpr Result StreamAlreadyOpen = 111;
constexpr Result RequestBusy = 112;
constexpr Result ImageIncomplete = 113;
constexpr Result ImageTimeout = 114;
constexpr Result ImageTooLarge = 115;
constexpr Result ImageAborted = 116;
constexpr Result ImageFailed = 117;
constexpr Result GenICamError = 118;
constexpr Result WrongFeatureType = 119;
// Added with the transport variables: a refused environment value.
constexpr Result InvalidSetting = 120;
}  // namespace Tavri::aravis::AravisResult
