#pragma once
// "The message of what this throws", once for every suite (header-only, so the
// Windows suite built with the cross compiler has it too).

#include <exception>
#include <functional>
#include <string>

#include "TavriCommon/Exceptions.h"

namespace Tavri::testing {

// The message of the RuntimeException `action` throws; "<no RuntimeException>" when
// it throws nothing, and "<not a RuntimeException: ...>" for any other exception, so
// an exception of the wrong kind fails the comparison with its text.
inline std::string runtimeError(const std::function<void()>& action) {
    try {
        action();
    } catch (const RuntimeException& error) {
        return error.what();
    } catch (const std::exception& error) {
        return std::string("<not a RuntimeException: ") + error.what() + ">";
    }
    return "<no RuntimeException>";
}

}  // namespace Tavri::testing
