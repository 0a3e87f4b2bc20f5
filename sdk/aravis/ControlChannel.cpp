#include "sdk/aravis/ControlChannel.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace Tavri::aravis::gvcp {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kReadRegisterCommand = 0x0080;
constexpr std::uint16_t kReadRegisterAck = 0x0081;
constexpr std::uint32_t kVersionRegister = 0x0000;  // bootstrap register every camera has

bool toNative(GSocketAddress* address, sockaddr_in& native) {
    if (!address || g_socket_address_get_family(address) != G_SOCKET_FAMILY_IPV4) return false;
    return g_socket_address_to_native(address, &native, sizeof native, nullptr) && native.sin_family == AF_INET;
}

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::uint16_t nextRequestId() {
    static std::atomic<std::uint16_t> id{static_cast<std::uint16_t>(1 + std::rand() % 30000)};
    std::uint16_t value = id.fetch_add(1);
    return value ? value : id.fetch_add(1);  // 0 is not a valid request id
}

// One read request; true when its acknowledgement came before `until`.
bool readOnce(int fd, std::uint16_t requestId, Clock::time_point until) {
    const std::array<std::uint8_t, 12> request{0x42, 0x01,  // key, acknowledge wanted
                                               kReadRegisterCommand >> 8, kReadRegisterCommand & 0xff,
                                               0x00, 0x04,  // payload length
                                               static_cast<std::uint8_t>(requestId >> 8),
                                               static_cast<std::uint8_t>(requestId & 0xff),
                                               0, 0, 0, static_cast<std::uint8_t>(kVersionRegister)};
    if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) return false;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (left <= 0) return false;
        pollfd wait{fd, POLLIN, 0};
        const int ready = ::poll(&wait, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        std::array<std::uint8_t, 64> answer{};
        const ssize_t got = ::recv(fd, answer.data(), answer.size(), 0);
        // Refused: nothing listens on the camera's control port any more.
        if (got < 0) return false;
        if (got < 8) continue;
        const auto command = static_cast<std::uint16_t>(answer[2] << 8 | answer[3]);
        const auto ackId = static_cast<std::uint16_t>(answer[6] << 8 | answer[7]);
        // Any acknowledgement of this request counts, an error status too: the camera answered.
        if (command == kReadRegisterAck && ackId == requestId) return true;
    }
}

}  // namespace

bool answers(ArvGvDevice* device) {
    sockaddr_in local{}, camera{};
    if (!toNative(arv_gv_device_get_interface_address(device), local) ||
        !toNative(arv_gv_device_get_device_address(device), camera))
        return false;
    local.sin_port = 0;
    Fd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    // Connected, so a refusal from the camera's address comes back as an error at once.
    if (fd.get() < 0 || ::bind(fd.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        ::connect(fd.get(), reinterpret_cast<sockaddr*>(&camera), sizeof camera) != 0)
        return false;
    for (int attempt = 0; attempt < kPresenceAttempts; ++attempt) {
        const auto until = Clock::now() + kPresenceAttemptWait;
        if (readOnce(fd.get(), nextRequestId(), until)) return true;
    }
    return false;
}

Sockets datagramSockets() {
    Sockets found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        char* end = nullptr;
        const std::string name = entry.path().filename().string();
        const long fd = std::strtol(name.c_str(), &end, 10);
        if (*end != '\0') continue;
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        int type = 0;
        socklen_t typeLength = sizeof type;
        if (::getsockname(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&bound), &length) == 0 &&
            bound.sin_family == AF_INET &&
            ::getsockopt(static_cast<int>(fd), SOL_SOCKET, SO_TYPE, &type, &typeLength) == 0 && type == SOCK_DGRAM)
            found.emplace(static_cast<int>(fd), ntohs(bound.sin_port));
    }
    return found;
}

namespace {
bool boundTo(int fd, const sockaddr_in& address, unsigned port) {
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    return ::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) == 0 && bound.sin_family == AF_INET &&
           bound.sin_addr.s_addr == address.sin_addr.s_addr && ntohs(bound.sin_port) == port;
}
}  // namespace

std::optional<ControlSocket> findControlSocket(ArvGvDevice* device, const Sockets& before) {
    sockaddr_in local{};
    if (!toNative(arv_gv_device_get_interface_address(device), local)) return std::nullopt;
    std::optional<ControlSocket> control;
    for (const auto& [fd, port] : datagramSockets()) {
        const auto old = before.find(fd);
        if ((old != before.end() && old->second == port) || !boundTo(fd, local, port)) continue;
        if (control) return std::nullopt;  // two candidates: not sure which
        control = ControlSocket{fd, port};
    }
    return control;
}

bool cut(const ControlSocket& control) {
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    if (::getsockname(control.fd, reinterpret_cast<sockaddr*>(&bound), &length) != 0 ||
        bound.sin_family != AF_INET || ntohs(bound.sin_port) != control.port)
        return false;
    // Linux answers ENOTCONN for an unconnected datagram socket, yet marks it shut:
    // every later send fails with EPIPE.
    ::shutdown(control.fd, SHUT_WR);
    return true;
}

}  // namespace Tavri::aravis::gvcp
