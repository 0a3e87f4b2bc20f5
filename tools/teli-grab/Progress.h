#pragma once

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>

namespace TeliGrab {

// One status line on stderr, rewritten in place at most ten times a second. Shown
// only when stderr is a terminal: a log file gets no carriage returns.
class Progress {
public:
    // `enabled` false: never shown (several cameras' loops would write over each other).
    explicit Progress(bool enabled = true) : enabled_(enabled && isatty(STDERR_FILENO) == 1) {}
    ~Progress() { finish(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // `text` is built only when it will be shown.
    template <typename MakeText>
    void show(MakeText&& makeText, bool force = false) {
        if (!enabled_) return;
        const auto now = std::chrono::steady_clock::now();
        if (!force && shown_ && now - last_ < std::chrono::milliseconds(100)) return;
        std::cerr << '\r' << makeText() << "\033[K" << std::flush;
        last_ = now;
        shown_ = true;
    }
    // Ends the status line so that what follows starts on a line of its own.
    void finish() {
        if (shown_) std::cerr << '\n' << std::flush;
        shown_ = false;
    }

private:
    bool enabled_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace TeliGrab
