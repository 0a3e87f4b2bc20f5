#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "TavriAPI/CameraDriver.h"
#include "TavriAPI/ImageRecords.h"
#include "TavriAPI/Messages.h"

namespace TeliGrab {

// The driver's text for an image that did not arrive within the wait.
using Tavri::DriverText::ImageWaitFailed;

// Why getInfoInternalCameras() listed no camera: "no camera found", or, when one is
// attached but does not answer, a sentence saying so. Asks isConnected(), which an
// unopened camera answers from the first camera's information.
std::string noCameraText(Tavri::CameraDriver& camera);

// When the camera is set to wait for a hardware trigger: a sentence saying so and how
// to let it run free; empty otherwise.
std::string triggerHint(Tavri::CameraDriver& camera);

// Asks isConnected(); a lost camera ends the command with
// ToolError(CameraDisconnected, "camera disconnected after N frames").
void throwIfDisconnected(Tavri::CameraDriver& camera, long frames);

// For an image whose byte count is not what the colour mode needs (the camera kept
// another pixel format): a sentence naming the mode and both sizes; else empty.
// `image` is the destination the driver sized for the mode.
std::string wrongSizeText(const Tavri::ImageRecord& record, Tavri::ImageType mode, const cv::Mat& image);

// Ends the command with DriverError when wrongSizeText has something to say.
void refuseWrongSize(const Tavri::ImageRecord& record, Tavri::ImageType mode, const cv::Mat& image);

}  // namespace TeliGrab
