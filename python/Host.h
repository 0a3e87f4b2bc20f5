#pragma once
// The plug-in loaded from Python, as teli-grab's session loads it, and what the module's
// waits share: the GIL released while the driver works, Ctrl-C heard between slices.

#include <pybind11/pybind11.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "Session.h"
#include "ToolError.h"

namespace TavriPython {

namespace py = pybind11;
using Clock = std::chrono::steady_clock;
using Tavri::platform::PluginLibrary;

// How often a wait looks up from the driver to hear Ctrl-C.
constexpr auto kSlice = std::chrono::milliseconds(50);

// Throws KeyboardInterrupt (or whatever a Python signal handler raised) once the GIL is
// held again.
void checkSignals();
[[noreturn]] void raise(PyObject* type, const std::string& text);
py::object fromJson(const std::string& text);

// Waits until every camera left to an interrupted driver call has been released. A new
// camera, and the interpreter's exit, wait for this first: the plug-in's driver is one
// per process.
void waitForInterruptedCalls();

// A loaded plug-in with one camera object, as teli-grab's session.
class Host {
public:
    Host(std::optional<std::string> serial, std::optional<std::string> sdk, std::optional<std::string> rig);

    TeliGrab::Session& session();
    Tavri::CameraDriver& camera() { return session().camera(); }
    const std::shared_ptr<PluginLibrary>& pin() const { return pin_; }
    bool closed() const { return !session_; }

    // Releases the camera, then the driver; the plug-in stays loaded while an array
    // from it lives.
    void close();

    // The result of `pending`, a driver call under way on another thread, waited for in
    // slices with the GIL released; `eachSlice` runs between them. A signal raises at
    // once: the call is left to end in the background, and the camera and the driver
    // are released as soon as it has (the driver's calls cannot be cut short).
    template <typename T>
    T await(std::future<T> pending, const std::function<void()>& eachSlice = {}) {
        for (;;) {
            {
                py::gil_scoped_release release;
                if (pending.wait_for(kSlice) == std::future_status::ready) break;
            }
            if (PyErr_CheckSignals() != 0) {
                py::error_already_set interrupted;
                auto left = std::make_shared<std::future<T>>(std::move(pending));
                retire([left] { left->wait(); });
                throw interrupted;
            }
            if (eachSlice) eachSlice();
        }
        py::gil_scoped_release release;
        return pending.get();
    }

private:
    // Hands the session to a thread that runs `finish`, then releases the camera and
    // the driver; this host is closed from then on.
    void retire(std::function<void()> finish);

    std::shared_ptr<TeliGrab::GlobalOptions> options_;
    std::shared_ptr<PluginLibrary> pin_;
    std::unique_ptr<TeliGrab::Session> session_;
};

// An image or a set's block that numpy shows without a copy; it holds the plug-in
// loaded, since the set's release runs code the plug-in made.
template <typename Owned>
py::capsule capsuleFor(std::shared_ptr<PluginLibrary> pin, Owned owned) {
    struct Keeper {
        std::shared_ptr<PluginLibrary> pin;
        Owned owned;
    };
    auto* keeper = new Keeper{std::move(pin), std::move(owned)};
    return py::capsule(keeper, [](void* p) { delete static_cast<Keeper*>(p); });
}

}  // namespace TavriPython
