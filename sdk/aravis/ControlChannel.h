#pragma once
// What Aravis 0.8 does not offer on a GigE camera's control channel (GVCP): its
// requests wait 5 x 500 ms for a camera that is gone, and nothing shortens that.
// - answers(): a presence check of our own, one register read on a socket of our
//   own, bounded by kPresenceAttempts x kPresenceAttemptWait;
// - cut(): once a camera is known to be gone, every later request Aravis makes on
//   it (stopping the stream channel, giving up control, the heartbeat) fails at once
//   instead of waiting out its time-outs; Aravis's socket is found by
//   findControlSocket() when the camera opens.

#include <arv.h>

#include <chrono>
#include <map>
#include <optional>

namespace Tavri::aravis::gvcp {

constexpr int kPresenceAttempts = 3;
constexpr std::chrono::milliseconds kPresenceAttemptWait{200};

// True when the camera acknowledged a bootstrap register read within the bound.
// Reads are open to any host, so this works beside Aravis's own channel and is not
// held up by a request of Aravis still waiting on it.
bool answers(ArvGvDevice* device);

// The datagram sockets of this process: descriptor and local port.
using Sockets = std::map<int, unsigned>;
Sockets datagramSockets();

// Aravis's control socket of one device. Aravis does not hand it out: it is the one
// datagram socket that opening the device made (`before` against now) and that is
// bound to the device's interface; none when that is not exactly one.
struct ControlSocket {
    int fd;
    unsigned port;
};
std::optional<ControlSocket> findControlSocket(ArvGvDevice* device, const Sockets& before);

// Shuts the sending side of that socket: Aravis's requests then fail when sent,
// without a wait, and a request already waiting for its answer ends within its own
// 500 ms. False when the descriptor no longer is that socket.
bool cut(const ControlSocket& control);

}  // namespace Tavri::aravis::gvcp
