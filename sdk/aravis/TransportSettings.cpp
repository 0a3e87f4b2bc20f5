#include "sdk/aravis/TransportSettings.h"

#include <boost/format.hpp>

#include <cerrno>
#include <cstdlib>

#include "TavriCommon/Logger.h"
#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/ErrorMapping.h"
#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis {
namespace {

struct Variable {
    const char* name;
    const char* word;  // the non-numeric value that means the default
    std::int64_t min;
    std::int64_t max;
    const char* unit;
};

constexpr Variable kPacketSize{"TAVRI_ARAVIS_PACKET_SIZE", "auto", 576, 16384, "bytes"};
constexpr Variable kPacketDelay{"TAVRI_ARAVIS_PACKET_DELAY", "camera", 0, 100000000, "nanoseconds"};
constexpr Variable kSocketBuffer{"TAVRI_ARAVIS_SOCKET_BUFFER", "auto", 65536, 1073741824, "bytes"};
constexpr const char* kPacketResend = "TAVRI_ARAVIS_PACKET_RESEND";

Result refuse(const char* name, const std::string& value, const std::string& allowed) {
    TAVRI_LOG(3, (boost::format("Aravis: %s=%s is not valid; allowed: %s") % name % value % allowed).str());
    return AravisResult::InvalidSetting;
}

// Unset, empty or the variable's word leave `out` empty; a whole number in range sets it.
Result readNumber(const Variable& variable, std::optional<std::int64_t>& out) {
    out.reset();
    const char* text = std::getenv(variable.name);
    if (!text || !*text || std::string(text) == variable.word) return AravisResult::Success;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (errno == 0 && *end == '\0' && value >= variable.min && value <= variable.max) {
        out = value;
        return AravisResult::Success;
    }
    return refuse(variable.name, text,
                  (boost::format("%s, or a whole number of %s from %d to %d") % variable.word % variable.unit %
                   variable.min % variable.max)
                      .str());
}

}  // namespace

Result TransportSettings::fromEnvironment(TransportSettings& settings) {
    TransportSettings read;
    std::optional<std::int64_t> number;
    if (const Result r = readNumber(kPacketSize, number)) return r;
    if (number) read.packetSize = static_cast<std::uint32_t>(*number);
    if (const Result r = readNumber(kPacketDelay, number)) return r;
    read.packetDelayNs = number;
    if (const Result r = readNumber(kSocketBuffer, number)) return r;
    if (number) read.socketBuffer = static_cast<std::uint32_t>(*number);

    const char* resend = std::getenv(kPacketResend);
    const std::string word = resend ? resend : "";
    if (word == "off")
        read.packetResend = false;
    else if (!word.empty() && word != "on")
        return refuse(kPacketResend, word, "on or off");
    settings = read;
    return AravisResult::Success;
}

Result TransportSettings::applyToCamera(ArvCamera* camera) const {
    if (!arv_camera_is_gv_device(camera)) return AravisResult::Success;
    GErrorSlot error;
    if (packetSize) {
        arv_camera_gv_set_packet_size(camera, static_cast<gint>(*packetSize), error.out());
        if (error) {
            TAVRI_LOG(3, (boost::format("Aravis: cannot set GevSCPSPacketSize to %d (%s): %s") % *packetSize %
                          kPacketSize.name % error.message())
                             .str());
            return resultFromError(error.get());
        }
    } else {
        // The largest size that reaches us whole: a jumbo-frame link gets jumbo packets,
        // a 1500-byte link never loses every packet of every image.
        const guint negotiated = arv_camera_gv_auto_packet_size(camera, error.out());
        if (error) {
            if (resultFromError(error.get()) == AravisResult::NotResponding) return AravisResult::NotResponding;
            TAVRI_LOG(1, "Aravis: packet size not negotiated, the camera keeps its own: " + error.message());
        } else {
            TAVRI_LOG(1, (boost::format("Aravis: packet size negotiated: %d bytes") % negotiated).str());
        }
    }
    if (packetDelayNs) {
        arv_camera_gv_set_packet_delay(camera, *packetDelayNs, error.out());
        if (error) {
            TAVRI_LOG(3, (boost::format("Aravis: cannot set GevSCPD to %d ns (%s): %s") % *packetDelayNs %
                          kPacketDelay.name % error.message())
                             .str());
            return resultFromError(error.get());
        }
    }
    return AravisResult::Success;
}

void TransportSettings::applyToStream(ArvStream* stream) const {
    if (!ARV_IS_GV_STREAM(stream)) return;
    if (socketBuffer)
        g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
                     static_cast<gint>(*socketBuffer), nullptr);
    else
        g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_AUTO, nullptr);
    g_object_set(stream, "packet-resend",
                 packetResend ? ARV_GV_STREAM_PACKET_RESEND_ALWAYS : ARV_GV_STREAM_PACKET_RESEND_NEVER, nullptr);
}

}  // namespace Tavri::aravis
