#pragma once
// RAII for the GLib objects the backend holds: GObject references and GError reports.

#include <glib-object.h>

#include <memory>
#include <string>

namespace Tavri::aravis {

struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object) g_object_unref(object);
    }
};

template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

// Collects the GError of one Aravis call; frees it when it goes.
class GErrorSlot {
public:
    GErrorSlot() = default;
    GErrorSlot(const GErrorSlot&) = delete;
    GErrorSlot& operator=(const GErrorSlot&) = delete;
    ~GErrorSlot() { reset(); }

    GError** out() {
        reset();
        return &error_;
    }
    const GError* get() const { return error_; }
    explicit operator bool() const { return error_ != nullptr; }
    std::string message() const { return error_ ? error_->message : std::string(); }
    void reset() { g_clear_error(&error_); }

private:
    GError* error_ = nullptr;
};

}  // namespace Tavri::aravis
