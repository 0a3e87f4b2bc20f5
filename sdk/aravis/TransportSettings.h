#pragma once
// How a GigE Vision stream is carried, from the environment:
//
//   TAVRI_ARAVIS_PACKET_SIZE    auto (default: negotiated with the camera when the
//                               stream opens) or bytes, 576 ... 16384
//   TAVRI_ARAVIS_PACKET_DELAY   camera (default: the camera's own) or nanoseconds
//                               between packets, 0 ... 100000000
//   TAVRI_ARAVIS_SOCKET_BUFFER  auto (default: one image's size) or bytes,
//                               65536 ... 1073741824
//   TAVRI_ARAVIS_PACKET_RESEND  on (default) or off
//
// A value outside these is refused with a message naming the variable, the value and
// what is allowed; it is never dropped for a default. USB3 Vision cameras ignore all
// four.

#include <arv.h>

#include <cstdint>
#include <optional>
#include <string>

#include "sdk/TeliSdk.h"

namespace Tavri::aravis {

struct TransportSettings {
    std::optional<std::uint32_t> packetSize;       // empty: negotiate
    std::optional<std::int64_t> packetDelayNs;     // empty: the camera's own
    std::optional<std::uint32_t> socketBuffer;     // empty: Aravis sizes it to the payload
    bool packetResend = true;

    // Reads the variables; on a bad value returns InvalidSetting and logs (level 3)
    // what was wrong and what is allowed.
    static Result fromEnvironment(TransportSettings& settings);

    // On the camera, before its stream is created (GigE only).
    Result applyToCamera(ArvCamera* camera) const;
    // On the stream, once it exists (GigE only).
    void applyToStream(ArvStream* stream) const;
};

}  // namespace Tavri::aravis
