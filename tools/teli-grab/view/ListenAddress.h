#pragma once

#include <string>

namespace TeliGrab::View {

// Where the view server listens. Only 127.0.0.1 is open without a token: any other
// address, other loopback addresses included, may be reachable by other users.
struct ListenAddress {
    std::string host;
    int port = 0;  // 0: the system chooses a free port

    bool needsToken() const { return host != "127.0.0.1"; }
};

// "ADDRESS:PORT" with a dotted IPv4 address and a port 0..65535; ToolError(Usage)
// naming what is wrong otherwise.
ListenAddress parseListenAddress(const std::string& text);

// 32 hex digits from the system's random source.
std::string randomToken();

}  // namespace TeliGrab::View
