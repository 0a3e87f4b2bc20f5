#pragma once

#include <exception>
#include <sstream>
#include <string>

#include "TavriCommon/Serialization.h"

namespace Tavri {

class Exception : public std::exception {
public:
    explicit Exception(const std::string& message) : message(message) {}
    const char* what() const noexcept override { return message.c_str(); }

protected:
    std::string message;
};

class RuntimeException : public Exception {
public:
    explicit RuntimeException(const std::string& message) : Exception(message) {}
};

class ArgumentException : public Exception {
protected:
    explicit ArgumentException(const std::string& message) : Exception(message) {}
};

class ArgumentInvalidException : public ArgumentException {
public:
    ArgumentInvalidException(const std::string& message, const std::string& name, std::string value)
        : ArgumentException(describe(message, name, std::move(value))) {}

private:
    static std::string describe(const std::string& message, const std::string& name, std::string value) {
        std::string details = message.empty() ? "No error details." : message;
        if (!message.empty() && message.back() != '.') details += '.';
        std::ostringstream valueText;
        valueText << value;
        std::ostringstream text;
        using Serialization::operator<<;
        text << details << " Invalid parameter: "
             << Serialization::NameValuePair{name.empty() ? "N/A" : name, valueText.str()};
        return text.str();
    }
};

}  // namespace Tavri
