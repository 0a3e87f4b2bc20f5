#pragma once
// The codes the simulated rig returns, by the names its code and tests use: the
// shared numbering of sdk/SdkResult.h, where the rig's own causes lie in 200 - 299.

#include "sdk/SdkResult.h"

namespace Tavri::sim::SimResult {

using namespace ::Tavri::SdkResult;

constexpr Result ClosedHandle = SimClosedHandle;
constexpr Result WrongHandleKind = SimWrongHandleKind;
constexpr Result CameraUnplugged = SimCameraUnplugged;
constexpr Result RequestOfOtherStream = SimRequestOfOtherStream;
constexpr Result ValueNotFinite = SimValueNotFinite;
constexpr Result ValueNotOnIncrement = SimValueNotOnIncrement;
constexpr Result InvalidTriggerSequence = SimInvalidTriggerSequence;
constexpr Result SoftwareTriggerNotSelected = SimSoftwareTriggerNotSelected;
constexpr Result LockedWhileAcquiring = SimLockedWhileAcquiring;
constexpr Result TooManyRequests = SimTooManyRequests;

}  // namespace Tavri::sim::SimResult
