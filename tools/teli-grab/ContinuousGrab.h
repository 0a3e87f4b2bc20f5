#pragma once

#include <iostream>

#include "TavriAPI/CameraDriver.h"

namespace TeliGrab {

// initGrabContinuous on construction, releaseGrabContinuous on destruction, so a
// failing image never leaves acquisition running.
class ContinuousGrab {
public:
    explicit ContinuousGrab(Tavri::CameraDriver& camera) : camera_(camera) { camera_.initGrabContinuous(); }
    ~ContinuousGrab() {
        try {
            camera_.releaseGrabContinuous();
        } catch (const std::exception& error) {
            std::cerr << "teli-grab: warning: releaseGrabContinuous: " << error.what() << '\n';
        } catch (...) {
        }
    }
    ContinuousGrab(const ContinuousGrab&) = delete;
    ContinuousGrab& operator=(const ContinuousGrab&) = delete;

    // The image the driver fills: created once with the camera's size and type.
    static cv::Mat frameFor(Tavri::CameraDriver& camera) {
        const int type = camera.getMode() == Tavri::ImageType::Color ? CV_8UC3 : CV_8UC1;
        return cv::Mat(camera.getRows(), camera.getCols(), type);
    }

private:
    Tavri::CameraDriver& camera_;
};

}  // namespace TeliGrab
