#include "Camera.h"

#include <pybind11/stl.h>

#include <vector>

#include "CameraChecks.h"
#include "SetReport.h"
#include "SettingsCheck.h"
#include "TavriAPI/ImageRecords.h"

namespace TavriPython {

using TeliGrab::ExitCode;
using TeliGrab::guarded;
using TeliGrab::ToolError;

namespace {

std::vector<py::ssize_t> imageShape(int rows, int cols, bool color) {
    if (color) return {rows, cols, 3};
    return {rows, cols};
}

Tavri::ImageType modeNamed(const std::string& word) {
    if (word == "gray") return Tavri::ImageType::Gray;
    if (word == "color") return Tavri::ImageType::Color;
    if (word == "raw") return Tavri::ImageType::Raw;
    throw py::value_error("mode must be 'gray', 'color' or 'raw', not '" + word + "'");
}

const char* modeWord(Tavri::ImageType mode) {
    switch (mode) {
        case Tavri::ImageType::Gray: return "gray";
        case Tavri::ImageType::Color: return "color";
        default: return "raw";
    }
}

Clock::time_point limitAfter(std::optional<double> seconds) {
    if (!seconds) return Clock::time_point::max();
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

}  // namespace

py::list listCameras(std::optional<std::string> sdk, std::optional<std::string> rig) {
    Host host(std::nullopt, sdk, rig);
    std::vector<Tavri::InternalCameraInfo> found;
    {
        py::gil_scoped_release release;
        found = guarded("getInfoInternalCameras", [&] { return host.camera().getInfoInternalCameras(); });
    }
    py::list cameras;
    for (const auto& info : found)
        cameras.append(py::dict(py::arg("serial") = info.serialNumber, py::arg("model") = info.model,
                                py::arg("vendor") = info.vendor));
    host.close();
    return cameras;
}

Camera::Camera(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig)
    : host_(serial, sdk, rig) {
    try {
        py::gil_scoped_release release;
        host_.session().open();
    } catch (...) {
        host_.close();
        throw;
    }
}

void Camera::close() {
    if (stream) stream->close();
    host_.close();
}

py::object Camera::settings() {
    std::string text;
    {
        py::gil_scoped_release release;
        text = guarded("settings", [&] { return driver().settings().toJson(); });
    }
    return fromJson(text);
}

py::list Camera::apply(const py::object& given, bool strict) {
    const auto path = py::module_::import("os").attr("PathLike");
    TeliGrab::CheckedSettings checked;
    if (py::isinstance<py::str>(given) || py::isinstance(given, path))
        checked = TeliGrab::loadSettingsFile(py::str(py::module_::import("os").attr("fspath")(given)));
    else
        checked =
            TeliGrab::parseSettingsText(py::str(py::module_::import("json").attr("dumps")(given)), "<settings>");
    std::vector<std::string> notKept;
    {
        py::gil_scoped_release release;
        notKept = host_.session().applyAndReadBack(checked);
    }
    if (!notKept.empty() && strict) {
        std::string text = "the camera did not keep what was asked:";
        for (const auto& line : notKept) text += " " + line + ";";
        text.pop_back();
        throw ToolError(ExitCode::BadSettingsFile, text);
    }
    py::list lines;
    for (const auto& line : notKept) lines.append(line);
    return lines;
}

std::string Camera::mode() {
    py::gil_scoped_release release;
    return modeWord(guarded("getMode", [&] { return driver().getMode(); }));
}

void Camera::setMode(const std::string& word) {
    const auto mode = modeNamed(word);
    py::gil_scoped_release release;
    guarded("setMode", [&] { driver().setMode(mode); });
}

py::array Camera::grab() {
    auto& camera = driver();
    // The driver's grab waits up to 2 s for a hardware trigger; Ctrl-C is heard meanwhile.
    auto image = std::make_unique<cv::Mat>(host_.await(std::async(std::launch::async, [&camera] {
        return guarded("grab", [&] { return camera.grab(); });
    })));
    if (image->empty()) throw ToolError(ExitCode::DriverError, "grab returned no image");
    const auto shape = imageShape(image->rows, image->cols, image->channels() == 3);
    const std::vector<py::ssize_t> strides =
        image->channels() == 3 ? std::vector<py::ssize_t>{static_cast<py::ssize_t>(image->step[0]), 3, 1}
                               : std::vector<py::ssize_t>{static_cast<py::ssize_t>(image->step[0]), 1};
    auto* data = image->data;
    return py::array(py::dtype::of<std::uint8_t>(), shape, strides, data,
                     capsuleFor(host_.pin(), std::shared_ptr<cv::Mat>(std::move(image))));
}

Sequence Camera::sequence(int count, std::optional<double> timeout, bool allowBroken,
                          std::optional<double> triggerRate) {
    auto& camera = driver();
    // Read before the start: no other call may reach the camera while it runs.
    const auto hint = guarded("trigger setting", [&] { return TeliGrab::triggerHint(camera); });
    {
        py::gil_scoped_release release;
        guarded("startGrabSequenceAsync", [&] { camera.startGrabSequenceAsync(count); });
    }
    // The driver's worker cannot be cut short; it ends within 500 ms of the last image,
    // so the timeout is answered once it has. Ctrl-C is answered at once.
    const auto limit = limitAfter(timeout);
    bool late = false;
    const auto set = host_.await(std::async(std::launch::async,
                                            [&camera] {
                                                return guarded("finishGrabSequenceAsync",
                                                               [&] { return camera.finishGrabSequenceAsync(); });
                                            }),
                                 [&] { late = late || Clock::now() >= limit; });
    if (late)
        raise(PyExc_TimeoutError, "the sequence of " + std::to_string(count) + " images took longer than " +
                                      std::to_string(*timeout) + " s");
    if (!set || set->images.size() != static_cast<std::size_t>(count))
        throw ToolError(ExitCode::DriverError, "the driver returned " + std::to_string(set ? set->images.size() : 0) +
                                                   " images for a sequence of " + std::to_string(count));

    const auto verdict = TeliGrab::judgeFinishedSet(camera, *set, triggerRate.value_or(0.0));
    const auto& records = TeliGrab::recordSource(camera).sequenceRecords();

    Sequence result;
    result.whole = verdict.whole();
    result.summary = verdict.describe();
    result.report = fromJson(TeliGrab::setReport(records, verdict).dump());
    if (!result.whole && !allowBroken) {
        std::string text = "set not whole: " + result.summary;
        if (records.endedBecause == TeliGrab::ImageWaitFailed && !hint.empty()) text += "; " + hint;
        throw ToolError(ExitCode::SetNotWhole, text);
    }
    const bool color = set->mode == Tavri::ImageType::Color;
    auto shape = imageShape(set->images.front().rows, set->images.front().cols, color);
    shape.insert(shape.begin(), count);
    auto* data = set->buffer.get();
    result.images = py::array(py::dtype::of<std::uint8_t>(), shape, data, capsuleFor(host_.pin(), set));
    return result;
}

Stream::Stream(Camera& camera, std::optional<double> timeout) : camera_(camera), timeout_(timeout) {
    if (camera_.stream) throw ToolError(ExitCode::Usage, "a stream is open on this camera already");
    auto& driver = camera_.driver();
    TeliGrab::Timeout none;
    none.text = "none";  // the bound is kept here, across the waiter's slices
    py::gil_scoped_release release;
    prototype_ = guarded("image size", [&] { return TeliGrab::ContinuousGrab::frameFor(driver); });
    waiter_ = guarded("trigger setting", [&] { return std::make_unique<TeliGrab::ImageWaiter>(driver, none); });
    grab_ = guarded("initGrabContinuous", [&] { return std::make_unique<TeliGrab::ContinuousGrab>(driver); });
    camera_.stream = this;
}

void Stream::close() {
    if (camera_.stream == this) camera_.stream = nullptr;
    py::gil_scoped_release release;
    grab_.reset();
}

py::array Stream::next() {
    if (!grab_) throw py::stop_iteration();
    // Each image its own array, which the driver fills: no copy after the driver's.
    py::array_t<std::uint8_t> image(imageShape(prototype_.rows, prototype_.cols, prototype_.channels() == 3));
    cv::Mat frame(prototype_.rows, prototype_.cols, prototype_.type(), image.mutable_data());
    const auto limit = limitAfter(timeout_);
    for (;;) {
        TeliGrab::ImageWaiter::Result result;
        {
            py::gil_scoped_release release;
            result = guarded("getNextImage",
                             [&] { return waiter_->next(frame, std::min(limit, Clock::now() + kSlice), frames_); });
        }
        if (result == TeliGrab::ImageWaiter::Result::Image) {
            ++frames_;
            return image;
        }
        checkSignals();
        if (result == TeliGrab::ImageWaiter::Result::Failed) throw ToolError(ExitCode::DriverError, waiter_->cause());
        if (Clock::now() >= limit) {
            const auto advice = waiter_->advice();
            raise(PyExc_TimeoutError,
                  "no image within " + std::to_string(*timeout_) + " s" + (advice.empty() ? "" : "; " + advice));
        }
    }
}

}  // namespace TavriPython
