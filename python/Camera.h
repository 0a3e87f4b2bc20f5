#pragma once
// One open camera from Python: settings, colour mode, single images, sequences and
// streams, each over teli-grab's own code.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <optional>
#include <string>

#include "ContinuousGrab.h"
#include "Host.h"
#include "ImageWaiter.h"

namespace TavriPython {

py::list listCameras(std::optional<std::string> sdk, std::optional<std::string> rig);

// A sequence's images with the camera's records of them and the verdict.
struct Sequence {
    py::array images;
    py::object report;  // as teli-grab's sequence.json
    bool whole = false;
    std::string summary;
};

class Camera;

// Continuous grabbing for as long as the stream is open.
class Stream {
public:
    Stream(Camera& camera, std::optional<double> timeout);
    ~Stream() { close(); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    void close();
    py::array next();

private:
    Camera& camera_;
    std::optional<double> timeout_;
    cv::Mat prototype_;  // the camera's size and type, read at the start
    std::unique_ptr<TeliGrab::ImageWaiter> waiter_;
    std::unique_ptr<TeliGrab::ContinuousGrab> grab_;
    long frames_ = 0;
};

class Camera {
public:
    Camera(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig);

    Tavri::CameraDriver& driver() { return host_.camera(); }

    void close();
    bool closed() const { return host_.closed(); }

    py::object settings();
    py::list apply(const py::object& given, bool strict);
    std::string mode();
    void setMode(const std::string& word);
    py::array grab();
    Sequence sequence(int count, std::optional<double> timeout, bool allowBroken, std::optional<double> triggerRate);

    // The stream open on this camera, closed before the camera is.
    Stream* stream = nullptr;

private:
    Host host_;
};

}  // namespace TavriPython
