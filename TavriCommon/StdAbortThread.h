#pragma once
// A std::thread whose body may not fail silently: an exception that escapes it is
// logged at level 4 and the process is aborted, so a broken worker is never mistaken
// for a finished one.

#include <cstdlib>
#include <sstream>
#include <thread>
#include <utility>

#include "TavriCommon/Logger.h"
#include "TavriCommon/Serialization.h"

namespace Tavri {

template <typename Body>
void runOrAbort(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (const std::exception& error) {
        std::ostringstream rendered;
        using Serialization::operator<<;
        rendered << error;
        TAVRI_LOG(4, "Thread aborted with exception: " + rendered.str());
        std::abort();
    } catch (...) {
        TAVRI_LOG(4, "Thread aborted with exception: unknown exception");
        std::abort();
    }
}

template <typename Body>
std::thread StdAbortThread(Body body) {
    return std::thread([body = std::move(body)]() mutable { runOrAbort(body); });
}

}  // namespace Tavri
