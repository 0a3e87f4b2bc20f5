#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TavriCommon/Logger.h"

namespace TeliGrab {

// While alive, passes every log record on to the logger that was installed before and
// keeps the texts of failures (level 3 and above) and the driver's level-1 line on a
// sequence that stopped early ("Grab sequence ended after 5 of 15 images: ..."). A grab
// sequence reports a lost image only through the log, so this is how the tool learns
// of it and of how many images arrived.
class DriverLogTap {
public:
    DriverLogTap();
    ~DriverLogTap();
    DriverLogTap(const DriverLogTap&) = delete;
    DriverLogTap& operator=(const DriverLogTap&) = delete;

    std::vector<std::string> failures() const;
    // The early-end line of the last sequence; empty when none was logged.
    std::string sequenceEnd() const;

private:
    class Forwarder;
    std::shared_ptr<Forwarder> forwarder_;
    std::shared_ptr<Tavri::Log::LoggerInterface> previous_;
};

}  // namespace TeliGrab
