#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TavriCommon/Logger.h"

namespace TeliGrab {

// While alive, passes every log record on to the logger that was installed before and
// keeps the texts of level `kept` and above (failures by default): the driver tells a
// refused setting only through its log.
class DriverLogTap {
public:
    explicit DriverLogTap(int kept = 3);
    ~DriverLogTap();
    DriverLogTap(const DriverLogTap&) = delete;
    DriverLogTap& operator=(const DriverLogTap&) = delete;

    // The texts kept, oldest first.
    std::vector<std::string> failures() const;
    bool saw(const std::string& text) const;

private:
    class Forwarder;
    std::shared_ptr<Forwarder> forwarder_;
    std::shared_ptr<Tavri::Log::LoggerInterface> previous_;
};

}  // namespace TeliGrab
