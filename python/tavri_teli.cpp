// tavri_teli: the driver plug-in hosted from Python. It is a host as teli-grab is: the
// same plug-in loader, session, settings checks, read-back and set report, so a camera
// behaves the same from the shell and from a script. This file is the module's face:
// names, docstrings and exceptions; Host.cpp loads the plug-in, Camera.cpp drives it.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Camera.h"

namespace py = pybind11;
using TavriPython::Camera;
using TavriPython::Sequence;
using TavriPython::Stream;
using TeliGrab::ExitCode;
using TeliGrab::ToolError;

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

    // A camera left to an interrupted driver call is released before the interpreter
    // unloads the plug-in.
    py::module_::import("atexit").attr("register")(py::cpp_function(&TavriPython::waitForInterruptedCalls));

    m.def("cameras", &TavriPython::listCameras, py::arg("sdk") = py::none(), py::arg("rig") = py::none(),
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
        .def("grab", &Camera::grab,
             "One image, as the camera's trigger setting gives it. Ctrl-C ends the wait at once and closes the "
             "camera; it is released when the driver's own wait (2 s at most) has ended.")
        .def("sequence", &Camera::sequence, py::arg("n"), py::arg("timeout") = py::none(),
             py::arg("allow_broken") = false, py::arg("trigger_rate") = py::none(),
             "A hardware-triggered sequence of n images (1 to 120) without a copy beyond the driver's.\n"
             "A set that is not whole raises BrokenSetError unless allow_broken=True. timeout (s) bounds the "
             "wait; the driver's own sequence ends within 500 ms of its last image and is waited out before "
             "TimeoutError is raised. Ctrl-C raises KeyboardInterrupt at once and closes the camera; it is "
             "released when the driver's sequence has ended, and a new open waits for that. trigger_rate (Hz), "
             "when known, is the period the set is judged by.")
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
