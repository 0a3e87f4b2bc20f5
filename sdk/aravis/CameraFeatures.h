#pragma once
// The SDK's camera controls as GenICam features, through Aravis's camera helpers
// where they exist. Every function expects the caller to hold the camera's feature
// lock (CameraConnection::withFeatures) and answers a result code, never throws.
//
// Mapping choices:
// - Trigger features are addressed with TriggerSelector = FrameStart when the camera
//   has that selector.
// - Trigger source 0 (hardware) is the line named by TAVRI_ARAVIS_TRIGGER_LINE,
//   Line0 when unset; 64 is Software; any other code is ValueNotSupported.
// - Trigger activation 0 is FallingEdge, 1 RisingEdge.
// - The SDK's software triggering is trigger mode off (the camera runs free) with
//   source Software; a software trigger while TriggerMode is Off succeeds without a
//   command, since the next frame comes anyway. With TriggerMode On it executes
//   TriggerSoftware.
// - Trigger sequence has no standard GenICam feature. A camera with a feature named
//   TriggerSequence gets it (entry "TriggerSequence<n>" or the integer n); on any
//   other camera 0, which means one frame per trigger pulse, is what a GenICam camera
//   does anyway and succeeds without a write, while other values are FeatureMissing.
// - Balance ratio selector 1 is Red, 2 Blue (BalanceRatio, or BalanceRatioAbs).
// - Sensor size is SensorWidth/SensorHeight, else WidthMax/HeightMax.

#include <arv.h>

#include <cstdint>
#include <string>

#include "sdk/TeliSdk.h"

namespace Tavri::aravis::features {

Result readSerialNumber(ArvCamera* camera, std::string& serial);

Result getSensorWidth(ArvCamera* camera, std::uint32_t& width);
Result getSensorHeight(ArvCamera* camera, std::uint32_t& height);
Result getWidth(ArvCamera* camera, std::uint32_t& width);
Result setWidth(ArvCamera* camera, std::uint32_t width);
Result getHeight(ArvCamera* camera, std::uint32_t& height);
Result setHeight(ArvCamera* camera, std::uint32_t height);
Result setPixelFormat(ArvCamera* camera, std::uint32_t pfnc);

// Bytes of the largest image among Mono8, RGB8 and BayerBG8 (those the camera
// offers) at sensor size, or the camera's own payload if that is larger.
Result largestPayload(ArvCamera* camera, std::uint32_t& bytes);

Result getTriggerMode(ArvCamera* camera, bool& on);
Result setTriggerMode(ArvCamera* camera, bool on);
Result setTriggerSequence(ArvCamera* camera, std::uint32_t sequence);
Result setTriggerSource(ArvCamera* camera, std::uint32_t source);
Result executeSoftwareTrigger(ArvCamera* camera);
Result getTriggerActivation(ArvCamera* camera, std::uint32_t& activation);
Result setTriggerActivation(ArvCamera* camera, std::uint32_t activation);

Result getExposureTime(ArvCamera* camera, double& value);
Result setExposureTime(ArvCamera* camera, double value);
Result getGain(ArvCamera* camera, double& value);
Result setGain(ArvCamera* camera, double value);
Result getBlackLevel(ArvCamera* camera, double& value);
Result setBlackLevel(ArvCamera* camera, double value);
Result getBalanceRatio(ArvCamera* camera, std::uint32_t selector, double& value);
Result setBalanceRatio(ArvCamera* camera, std::uint32_t selector, double value);

// Why the last failed write on this thread failed, in GenICam terms ("TriggerSource =
// Line9 refused: no such entry; the camera offers Line0, Line1, Software"), and
// forgets it; empty when no write noted a cause.
std::string takeFailureNote();

// The line hardware triggering uses: TAVRI_ARAVIS_TRIGGER_LINE or Line0.
std::string hardwareTriggerLine();

}  // namespace Tavri::aravis::features
