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
    for (int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

int interruptSignal() { return received; }

void throwIfInterrupted() {
    if (received == SIGINT) throw ToolError(ExitCode::Interrupted, "interrupted (SIGINT)");
    if (received != 0) throw ToolError(ExitCode::Terminated, "terminated (SIGTERM)");
}

}  // namespace TeliGrab
