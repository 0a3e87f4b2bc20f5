#pragma once

#include <string>
#include <utility>

#include "view/CameraLoop.h"
#include "view/FrameHub.h"
#include "view/TaskQueue.h"

namespace TeliGrab::View {

// One camera of the view: the queue to the thread that drives it, the hub of its frames,
// and its loop. The view shows several side by side, each with one of these.
struct ViewedCamera {
    ViewedCamera(std::string serialNumber, Tavri::CameraDriver& camera)
        : serial(std::move(serialNumber)), loop(camera, tasks, hub) {}
    ViewedCamera(const ViewedCamera&) = delete;
    ViewedCamera& operator=(const ViewedCamera&) = delete;

    const std::string serial;
    TaskQueue tasks;
    FrameHub hub;
    CameraLoop loop;
};

}  // namespace TeliGrab::View
