#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TavriCommon/Logger.h"

namespace TeliGrab {

// While alive, passes every log record on to the logger that was installed before and
// keeps the texts of failures (level 3 and above): the driver tells a refused setting
// only through its log.
class DriverLogTap {
public:
    DriverLogTap();
    ~DriverLogTap();
    DriverLogTap(const DriverLogTap&) = delete;
    DriverLogTap& operator=(const DriverLogTap&) = delete;

    std::vector<std::string> failures() const;

private:
    class Forwarder;
    std::shared_ptr<Forwarder> forwarder_;
    std::shared_ptr<Tavri::Log::LoggerInterface> previous_;
};

}  // namespace TeliGrab
