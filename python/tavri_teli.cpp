// tavri_teli: the driver plug-in hosted from Python. It is a host as teli-grab is: the
// same plug-in loader, session, settings checks, read-back and set report, so a camera
// behaves the same from the shell and from a script.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <dlfcn.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CameraChecks.h"
#include "ContinuousGrab.h"
#include "ImageWaiter.h"
#include "Session.h"
#include "SetReport.h"
#include "SettingsCheck.h"
#include "ToolError.h"
#include "TavriAPI/ImageRecords.h"

namespace py = pybind11;
using TeliGrab::ExitCode;
using TeliGrab::guarded;
using TeliGrab::ToolError;
using Clock = std::chrono::steady_clock;
using Tavri::platform::PluginLibrary;

namespace {

constexpr const char* kPluginName = "libtavri_toshiba_teli.so";
// How often a wait looks up from the driver to hear Ctrl-C.
constexpr auto kSlice = std::chrono::milliseconds(50);

// The plug-in: TAVRI_TELI_PLUGIN, else beside this module, else the build tree's bin/
// beside python/, else the library path.
std::string pluginPath() {
    if (const char* given = std::getenv("TAVRI_TELI_PLUGIN"); given && *given) return given;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&pluginPath), &info) && info.dli_fname) {
        const auto here = std::filesystem::absolute(info.dli_fname).parent_path();
        std::error_code error;
        for (const auto& candidate : {here / kPluginName, here.parent_path() / "bin" / kPluginName})
            if (std::filesystem::exists(candidate, error)) return candidate.string();
    }
    return kPluginName;
}

// Throws KeyboardInterrupt (or whatever a Python signal handler raised) once the GIL is
// held again.
void checkSignals() {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

// An image or a set's block that numpy shows without a copy; it holds the plug-in
// loaded, since the set's release runs code the plug-in made.
template <typename Owned>
struct Keeper {
    std::shared_ptr<PluginLibrary> pin;
    Owned owned;
};

template <typename Owned>
py::capsule capsuleFor(std::shared_ptr<PluginLibrary> pin, Owned owned) {
    auto* keeper = new Keeper<Owned>{std::move(pin), std::move(owned)};
    return py::capsule(keeper, [](void* p) { delete static_cast<Keeper<Owned>*>(p); });
}

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

[[noreturn]] void raise(PyObject* type, const std::string& text) {
    PyErr_SetString(type, text.c_str());
    throw py::error_already_set();
}

py::object fromJson(const std::string& text) { return py::module_::import("json").attr("loads")(text); }

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The plug-in while anything from it lives, and the backend and rig it started with.
struct LoadedPlugin {
    std::weak_ptr<PluginLibrary> pin;
    std::pair<std::string, std::string> chosen;
};
LoadedPlugin& loadedPlugin() {
    static LoadedPlugin loaded;
    return loaded;
}

// A loaded plug-in with one camera object, as teli-grab's session.
class Host {
public:
    Host(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig) {
        if (serial && !serial->empty()) options_.serials = {*serial};
        options_.sdk = sdk.value_or("");
        options_.rig = rig.value_or("");
        // The plug-in keeps the backend, and the rig, it made first for as long as it
        // stays loaded: another one asked for meanwhile would be ignored without a word.
        const auto chosen = std::make_pair(options_.sdk.empty() ? environment("TAVRI_TELI_SDK") : options_.sdk,
                                           options_.rig.empty() ? environment("TAVRI_SIM_RIG") : options_.rig);
        auto& loaded = loadedPlugin();
        pin_ = loaded.pin.lock();
        if (pin_ && loaded.chosen != chosen)
            throw ToolError(ExitCode::Usage, "the plug-in is still loaded with sdk '" + loaded.chosen.first +
                                                 "' and rig '" + loaded.chosen.second +
                                                 "' (an open camera or an image array from it holds it); "
                                                 "release those before asking for another");
        TeliGrab::exportEnvironment(options_);
        const auto path = pluginPath();
        if (!pin_) {
            pin_ = std::make_shared<PluginLibrary>(path);
            loaded = {pin_, chosen};
        }
        py::gil_scoped_release release;
        session_ = std::make_unique<TeliGrab::Session>(options_, path, std::vector<TeliGrab::CheckedSettings>{});
    }

    TeliGrab::Session& session() {
        if (!session_) throw ToolError(ExitCode::Usage, "the camera is closed");
        return *session_;
    }
    Tavri::CameraDriver& camera() { return session().camera(); }
    const std::shared_ptr<PluginLibrary>& pin() const { return pin_; }
    bool closed() const { return !session_; }

    // Releases the camera, then the driver; the plug-in stays loaded while an array
    // from it lives.
    void close() {
        if (!session_) return;
        {
            py::gil_scoped_release release;
            session_.reset();
        }
        pin_.reset();
    }

private:
    TeliGrab::GlobalOptions options_;
    std::shared_ptr<PluginLibrary> pin_;
    std::unique_ptr<TeliGrab::Session> session_;
};

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
    Camera(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig)
        : host_(serial, sdk, rig) {
        try {
            py::gil_scoped_release release;
            host_.session().open();
        } catch (...) {
            host_.close();
            throw;
        }
    }

    Tavri::CameraDriver& driver() { return host_.camera(); }
    Host& host() { return host_; }

    void close() {
        if (stream) stream->close();
        host_.close();
    }
    bool closed() const { return host_.closed(); }

    py::object settings() {
        std::string text;
        {
            py::gil_scoped_release release;
            text = guarded("settings", [&] { return driver().settings().toJson(); });
        }
        return fromJson(text);
    }

    py::list apply(const py::object& given, bool strict) {
        const auto path = py::module_::import("os").attr("PathLike");
        TeliGrab::CheckedSettings checked;
        if (py::isinstance<py::str>(given) || py::isinstance(given, path))
            checked = TeliGrab::loadSettingsFile(py::str(py::module_::import("os").attr("fspath")(given)));
        else
            checked = TeliGrab::parseSettingsText(py::str(py::module_::import("json").attr("dumps")(given)),
                                                  "<settings>");
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

    std::string mode() {
        py::gil_scoped_release release;
        return modeWord(guarded("getMode", [&] { return driver().getMode(); }));
    }
    void setMode(const std::string& word) {
        const auto mode = modeNamed(word);
        py::gil_scoped_release release;
        guarded("setMode", [&] { driver().setMode(mode); });
    }

    py::array grab() {
        auto image = std::make_unique<cv::Mat>();
        {
            py::gil_scoped_release release;
            *image = guarded("grab", [&] { return driver().grab(); });
        }
        checkSignals();
        if (image->empty()) throw ToolError(ExitCode::DriverError, "grab returned no image");
        const auto shape = imageShape(image->rows, image->cols, image->channels() == 3);
        const std::vector<py::ssize_t> strides =
            image->channels() == 3 ? std::vector<py::ssize_t>{static_cast<py::ssize_t>(image->step[0]), 3, 1}
                                   : std::vector<py::ssize_t>{static_cast<py::ssize_t>(image->step[0]), 1};
        auto* data = image->data;
        return py::array(py::dtype::of<std::uint8_t>(), shape, strides, data,
                         capsuleFor(host_.pin(), std::shared_ptr<cv::Mat>(std::move(image))));
    }

    Sequence sequence(int count, std::optional<double> timeout, bool allowBroken, std::optional<double> triggerRate) {
        auto& camera = driver();
        // Read before the start: no other call may reach the camera while it runs.
        const auto hint = guarded("trigger setting", [&] { return TeliGrab::triggerHint(camera); });
        {
            py::gil_scoped_release release;
            guarded("startGrabSequenceAsync", [&] { camera.startGrabSequenceAsync(count); });
        }
        auto finishing = std::async(std::launch::async, [&camera] {
            return guarded("finishGrabSequenceAsync", [&] { return camera.finishGrabSequenceAsync(); });
        });
        // The driver's worker cannot be cut short; it ends within 500 ms of the last
        // image, so a signal or the timeout is answered once it has.
        const auto limit =
            timeout ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*timeout))
                    : Clock::time_point::max();
        bool late = false;
        std::optional<py::error_already_set> interrupted;
        for (;;) {
            {
                py::gil_scoped_release release;
                if (finishing.wait_for(kSlice) == std::future_status::ready) break;
            }
            if (!interrupted && PyErr_CheckSignals() != 0) interrupted.emplace();
            late = late || Clock::now() >= limit;
        }
        std::shared_ptr<Tavri::ImageSet> set;
        {
            py::gil_scoped_release release;
            set = finishing.get();
        }
        if (interrupted) throw std::move(*interrupted);
        if (late) raise(PyExc_TimeoutError, "the sequence of " + std::to_string(count) + " images took longer than " +
                                                std::to_string(*timeout) + " s");
        if (!set || set->images.size() != static_cast<std::size_t>(count))
            throw ToolError(ExitCode::DriverError, "the driver returned " +
                                                       std::to_string(set ? set->images.size() : 0) +
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

    // The stream open on this camera, closed before the camera is.
    Stream* stream = nullptr;

private:
    Host host_;
};

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
    const auto limit = timeout_ ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(*timeout_))
                                : Clock::time_point::max();
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
            raise(PyExc_TimeoutError, "no image within " + std::to_string(*timeout_) + " s" +
                                          (advice.empty() ? "" : "; " + advice));
        }
    }
}

}  // namespace

PYBIND11_MODULE(tavri_teli, m) {
    m.doc() = "Toshiba Teli cameras through the Tavri driver plug-in, loaded as teli-grab loads it.\n\n"
              "Images are NumPy uint8 arrays: (height, width) for gray and raw (Bayer) modes, "
              "(height, width, 3) for color. Set sdk='sim' (or TAVRI_TELI_SDK=sim) for the simulated rig.";

    static py::exception<ToolError> error(m, "Error", PyExc_RuntimeError);
    error.doc() = "A failure of the driver or of this host; the text is the driver's.";
    static py::exception<ToolError> broken(m, "BrokenSetError", error.ptr());
    broken.doc() = "A sequence whose images do not answer their own triggers, or that ended early.";
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) std::rethrow_exception(thrown);
        } catch (const ToolError& failure) {
            PyErr_SetString(failure.code() == ExitCode::SetNotWhole ? broken.ptr() : error.ptr(), failure.what());
        }
    });

    m.def("cameras", &listCameras, py::arg("sdk") = py::none(), py::arg("rig") = py::none(),
          "The cameras the driver finds: a list of dicts with serial, model and vendor.\n"
          "sdk: 'sim', 'aravis' or 'teli' (else TAVRI_TELI_SDK); rig: the simulated rig's JSON file.");

    py::class_<Sequence>(m, "Sequence", "The images of one hardware-triggered sequence, their records and verdict.")
        .def_readonly("images", &Sequence::images,
                      "(n, height, width[, 3]) uint8 over the driver's own block; it keeps the set alive.")
        .def_readonly("report", &Sequence::report,
                      "The verdict, its problems and one record per image, as teli-grab's sequence.json.")
        .def_property_readonly(
            "records", [](const Sequence& s) { return s.report["images"]; }, "One dict per image taken.")
        .def_readonly("whole", &Sequence::whole, "True when every image answers its own trigger.")
        .def_readonly("verdict", &Sequence::summary, "'whole', or one line per problem.")
        .def("__len__", [](const Sequence& s) { return s.images.shape(0); })
        .def("__getitem__", [](const Sequence& s, py::object index) { return s.images[index]; })
        .def("__array__", [](const Sequence& s, py::args) { return s.images; });

    py::class_<Stream>(m, "Stream", "Continuous grabbing; iterate for images, close (or leave the with block) to stop.")
        .def("__iter__", [](Stream& s) -> Stream& { return s; })
        .def("__next__", &Stream::next)
        .def("__enter__", [](Stream& s) -> Stream& { return s; })
        .def("__exit__", [](Stream& s, py::args) { s.close(); })
        .def("close", &Stream::close, "Stops continuous grabbing.");

    py::class_<Camera>(m, "Camera", "One open camera. Use as a context manager: the camera and the driver are "
                                    "released on leaving the block, also on an exception.")
        .def("close", &Camera::close, "Releases the camera and the driver; closing again does nothing.")
        .def_property_readonly("closed", &Camera::closed)
        .def("__enter__", [](Camera& c) -> Camera& { return c; })
        .def("__exit__", [](Camera& c, py::args) { c.close(); })
        .def("settings", &Camera::settings, "The driver's settings tree as a dict (as teli-grab settings prints it).")
        .def("apply", &Camera::apply, py::arg("settings"), py::arg("strict") = false,
             "Applies a settings dict, or a JSON file's path, with teli-grab's checks: an unknown key or a wrong "
             "value raises Error before anything changes. Returns the values the camera did not keep "
             "(read back); with strict=True those raise Error.")
        .def_property("mode", &Camera::mode, &Camera::setMode, "The colour mode: 'gray', 'color' or 'raw'.")
        .def("grab", &Camera::grab, "One image, as the camera's trigger setting gives it.")
        .def("sequence", &Camera::sequence, py::arg("n"), py::arg("timeout") = py::none(),
             py::arg("allow_broken") = false, py::arg("trigger_rate") = py::none(),
             "A hardware-triggered sequence of n images (1 to 120) without a copy beyond the driver's.\n"
             "A set that is not whole raises BrokenSetError unless allow_broken=True. timeout (s) bounds the "
             "wait; the driver's own sequence ends within 500 ms of its last image and is waited out before "
             "TimeoutError or KeyboardInterrupt is raised. trigger_rate (Hz), when known, is the period the set "
             "is judged by.")
        .def("stream", [](Camera& c, std::optional<double> timeout) { return std::make_unique<Stream>(c, timeout); },
             py::arg("timeout") = 2.0, py::keep_alive<0, 1>(),
             "Continuous grabbing: an iterator of images, each waited for at most timeout seconds "
             "(None: no limit; Ctrl-C still ends the wait).");

    m.def("open", [](std::optional<std::string> serial, std::optional<std::string> sdk,
                     std::optional<std::string> rig) { return std::make_unique<Camera>(serial, sdk, rig); },
          py::arg("serial") = py::none(), py::arg("sdk") = py::none(), py::arg("rig") = py::none(),
          "Loads the plug-in, starts the driver and opens the camera with this serial (None: the first).\n"
          "sdk: 'sim', 'aravis' or 'teli' (else TAVRI_TELI_SDK); rig: the simulated rig's JSON file.");
}
