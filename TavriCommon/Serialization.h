#pragma once

#include <exception>
#include <ostream>
#include <string>

namespace Tavri::Serialization {

struct NameValuePair {
    std::string name;
    std::string value;
};

// "Type: message", with the exception's dynamic type demangled.
std::ostream& operator<<(std::ostream& out, const std::exception& error);
// name = "value"
std::ostream& operator<<(std::ostream& out, const NameValuePair& pair);

}  // namespace Tavri::Serialization
