#pragma once
// The completion-event rule of the backend contract, written once for every backend
// (simulator, Aravis, the unit tests' fake camera).
//
// A stream's event stands for "completed requests are waiting to be taken". It is an
// auto-reset event, so signals merge: a burst of completions leaves one signal. The
// driver waits once per take, so
//   - every completion signals it (`completed`), and
//   - after every take, drain or flush (`settle`) it is left signalled exactly when
//     completed requests are still waiting: set again while any are left, so one wait
//     per take finds every image of a burst; cleared when none are, so a signal left
//     over from images taken without a wait never wakes a wait for nothing.
// `settle` leaves a pending signal alone while images are left; otherwise it clears
// the signal and asks again, so a completion that races with the first question is
// never lost, provided the backend counts a completion before it signals.

#include "platform/Platform.h"
#include "sdk/TeliSdk.h"

namespace Tavri {

class CompletionEvent {
public:
    explicit CompletionEvent(EventHandle event = nullptr) : event_(event) {}

    EventHandle handle() const { return event_; }

    void completed() const {
        if (event_) platform::setEvent(event_);
    }

    // `waiting()` tells whether completed requests are left.
    template <typename Waiting>
    void settle(Waiting&& waiting) const {
        if (!event_) return;
        if (!waiting()) {
            platform::waitForEvent(event_, 0);
            if (!waiting()) return;
        }
        platform::setEvent(event_);
    }
    void settle(bool waiting) const {
        settle([waiting] { return waiting; });
    }

private:
    EventHandle event_;
};

}  // namespace Tavri
