#pragma once

#include <string>

#include "TavriAPI/CameraDriver.h"
#include "TavriAPI/Messages.h"

namespace TeliGrab {

// The driver's text for an image that did not arrive within the wait.
using Tavri::DriverText::ImageWaitFailed;

// When the camera is set to wait for a hardware trigger: a sentence saying so and how
// to let it run free; empty otherwise.
std::string triggerHint(Tavri::CameraDriver& camera);

// Asks isConnected(); a lost camera ends the command with
// ToolError(CameraDisconnected, "camera disconnected after N frames").
void throwIfDisconnected(Tavri::CameraDriver& camera, long frames);

}  // namespace TeliGrab
