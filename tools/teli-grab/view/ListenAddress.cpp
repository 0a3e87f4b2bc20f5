#include "view/ListenAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <boost/format.hpp>
#include <cctype>
#include <random>

#include "ToolError.h"

namespace TeliGrab::View {

ListenAddress parseListenAddress(const std::string& text) {
    const auto refuse = [&text](const std::string& why) {
        return ToolError(ExitCode::Usage, (boost::format("--listen '%s': %s") % text % why).str());
    };
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) throw refuse("expected ADDRESS:PORT, e.g. 127.0.0.1:8080");
    ListenAddress address{text.substr(0, colon), 0};
    const std::string port = text.substr(colon + 1);

    in_addr parsed{};
    if (inet_pton(AF_INET, address.host.c_str(), &parsed) != 1)
        throw refuse("the address must be a dotted IPv4 address such as 127.0.0.1 or 0.0.0.0");
    if (port.empty() || port.size() > 5 ||
        !std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c); }))
        throw refuse("the port must be a number from 0 to 65535");
    address.port = std::stoi(port);
    if (address.port > 65535) throw refuse("the port must be a number from 0 to 65535");
    return address;
}

std::string randomToken() {
    std::random_device source;
    std::string token;
    for (int i = 0; i < 4; ++i) token += (boost::format("%08x") % source()).str();
    return token;
}

}  // namespace TeliGrab::View
