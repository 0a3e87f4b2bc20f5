#pragma once

#include "TavriAPI/CameraDriver.h"
#include "view/PageRequests.h"
#include "view/Reply.h"

namespace TeliGrab::View {

// The page's camera work. Each runs on the camera thread with acquisition stopped and
// answers with what the camera kept; a driver refusal is part of the answer, not a throw.

// {"settings": tree} as `teli-grab settings` prints it.
Reply currentSettings(Tavri::CameraDriver& camera);

// setMode, then updateSettings; answers {"ok", "refusals": [texts], "settings": tree
// read back}. The refusals are the driver's exception text and the failures it logged.
Reply applyChange(Tavri::CameraDriver& camera, const SettingsChange& change);

// One image from grab, as PNG; a Raw mosaic demosaiced when `debayer` is set, as
// `teli-grab grab` writes it.
Reply stillPng(Tavri::CameraDriver& camera, bool debayer);

// A hardware-triggered sequence of `count` images as one JPEG contact sheet.
Reply sequenceSheet(Tavri::CameraDriver& camera, int count);

// A JSON error answer: {"error": text}.
Reply errorReply(int status, const std::string& text);

}  // namespace TeliGrab::View
