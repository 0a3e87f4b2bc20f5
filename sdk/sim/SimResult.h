#pragma once
// Every result code the simulated rig returns, one cause each. 0, 2, 4, 19 and 20 are
// the codes the driver gives a meaning to (sdk/TeliSdk.h); the others are the rig's
// own and only ever reported. An injected fault returns whatever code the test chose.

#include <cstdint>

#include "sdk/TeliSdk.h"

namespace Tavri::sim::SimResult {

constexpr Result Success = SdkResult::Success;                       // 0
constexpr Result AlreadyInitialized = SdkResult::AlreadyInitialized; // 2: sdkInitialize again
// 4: sdkOpenCamera of a camera that is already open; a secondary handle is handed out
// that may read the camera (information, getters) but not control it.
constexpr Result CameraAlreadyOpen = SdkResult::CameraAlreadyOpen;
// 19: the camera is present but does not answer (condition Hung or Dead).
constexpr Result NotResponding = SdkResult::NotResponding;
// 20: sdkTakeCompletedRequest with no completed request on the stream.
constexpr Result NoCompletedRequest = SdkResult::NoCompletedRequest;

constexpr Result NotInitialized = 100;       // any call before sdkInitialize / after sdkTerminate
constexpr Result NullArgument = 101;         // a required out-pointer or record pointer is null
constexpr Result NullHandle = 102;           // a handle argument is null
constexpr Result UnknownHandle = 103;        // never handed out by this rig
constexpr Result ClosedHandle = 104;         // handed out once, closed or released since
constexpr Result WrongHandleKind = 105;      // e.g. a stream handle where a camera handle belongs
constexpr Result IndexOutOfRange = 106;      // camera index >= sdkGetCameraCount
constexpr Result CameraUnplugged = 107;      // the camera was unplugged (condition Unplugged)
constexpr Result AccessDenied = 108;         // control through a secondary (read-only) handle
constexpr Result StreamAlreadyOpen = 109;    // sdkOpenStream on a camera whose stream is open
constexpr Result NullBuffer = 110;           // sdkCreateRequest with no buffer
constexpr Result ZeroBufferSize = 111;       // sdkCreateRequest with size 0
constexpr Result RequestNotHeld = 112;       // enqueue of a request that is waiting, in flight or completed
constexpr Result RequestInUse = 113;         // release of a request that is waiting, in flight or completed
constexpr Result RequestOfOtherStream = 114; // a request handle used with another stream
constexpr Result FrameTooLarge = 115;        // take: the frame did not fit the request's buffer
constexpr Result ValueOutOfRange = 116;      // feature value below its minimum or above its maximum
constexpr Result ValueNotFinite = 117;       // NaN or infinite feature value
constexpr Result ValueNotOnIncrement = 118;  // width or height not a multiple of its increment
constexpr Result InvalidSelector = 119;      // balance ratio selector other than 1 (red) or 2 (blue)
constexpr Result UnsupportedPixelFormat = 120; // format the camera does not list
constexpr Result InvalidTriggerSource = 121;   // trigger source other than 0 (line) or 64 (software)
constexpr Result InvalidTriggerActivation = 122; // activation other than 0 (falling) or 1 (rising)
constexpr Result InvalidTriggerSequence = 123;   // trigger sequence above the camera's maximum
constexpr Result SoftwareTriggerNotSelected = 124; // software trigger while the source is not 64
constexpr Result LockedWhileAcquiring = 125; // width, height or pixel format change during acquisition
constexpr Result TooManyRequests = 126;      // more than kMaxRequestsPerStream requests on one stream

// Short English name of a code, for messages and test output ("FrameTooLarge").
const char* name(Result code);

}  // namespace Tavri::sim::SimResult
