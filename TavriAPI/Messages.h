#pragma once
// Message building shared by the driver's files: every text with a variable part is
// made with Boost.Format.

#include <boost/format.hpp>
#include <string>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Logger.h"

// Texts of the driver that a host may key on, spelt once here: hosts include this
// header rather than copy them.
namespace Tavri::DriverText {
constexpr const char* ImageWaitFailed = "Failed to wait for camera image completion";
// isConnected() before an open: a camera is counted but does not say who it is.
constexpr const char* CameraInfoFailed = "Failed to get camera info";
}  // namespace Tavri::DriverText

namespace Tavri::detail {

template <typename... Args>
std::string formatMessage(const std::string& pattern, const Args&... args) {
    boost::format format(pattern);
    return (format % ... % args).str();
}

inline std::string failedTo(const std::string& action) { return formatMessage("Failed to %s", action); }

}  // namespace Tavri::detail
