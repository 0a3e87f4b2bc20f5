#include "Interrupt.h"

#include <unistd.h>

#include <csignal>

namespace TeliGrab {

namespace {

volatile std::sig_atomic_t received = 0;

extern "C" void onSignal(int signal) {
    if (received != 0) _exit(128 + signal);
    received = signal;
}

}  // namespace

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    // Calls under way go on; the flag is looked at between waits.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    // A closed terminal and a reader gone from the pipe end the tool the same way, with
    // the camera released; the broken pipe's writes then fail and are reported.
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaction(signal, &action, nullptr);
}

int interruptSignal() { return received; }

void throwIfInterrupted() {
    switch (received) {
    case 0: return;
    case SIGINT: throw ToolError(ExitCode::Interrupted, "interrupted (SIGINT)");
    case SIGHUP: throw ToolError(ExitCode::HungUp, "hung up (SIGHUP)");
    case SIGPIPE: throw ToolError(ExitCode::BrokenPipe, "broken pipe (SIGPIPE)");
    default: throw ToolError(ExitCode::Terminated, "terminated (SIGTERM)");
    }
}

}  // namespace TeliGrab
