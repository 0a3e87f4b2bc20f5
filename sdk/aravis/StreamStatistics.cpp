#include "sdk/aravis/StreamStatistics.h"

#include "TavriCommon/Logger.h"

namespace Tavri::aravis {

StreamStatistics StreamStatistics::read(ArvStream* stream) {
    StreamStatistics s;
    if (!stream) return s;
    guint64 completed = 0, failures = 0, underruns = 0;
    arv_stream_get_statistics(stream, &completed, &failures, &underruns);
    s.completed = completed;
    s.failures = failures;
    s.underruns = underruns;
    // Time-outs and packets are GigE counters; a USB3 stream reads 0 for them.
    if (ARV_IS_GV_STREAM(stream)) {
        s.timeouts = arv_stream_get_info_uint64_by_name(stream, "n_timeouts");
        guint64 resent = 0, missing = 0;
        arv_gv_stream_get_statistics(ARV_GV_STREAM(stream), &resent, &missing);
        s.resentPackets = resent;
        s.missingPackets = missing;
    }
    return s;
}

StreamStatistics StreamStatistics::operator-(const StreamStatistics& earlier) const {
    StreamStatistics d;
    d.completed = completed - earlier.completed;
    d.failures = failures - earlier.failures;
    d.timeouts = timeouts - earlier.timeouts;
    d.underruns = underruns - earlier.underruns;
    d.missingPackets = missingPackets - earlier.missingPackets;
    d.resentPackets = resentPackets - earlier.resentPackets;
    return d;
}

void logAcquisition(const std::string& deviceId, const StreamStatistics& figures) {
    const std::string line = "Aravis " + figures.line(deviceId);
    if (!figures.lostAnything()) {
        TAVRI_LOG(1, line);
        return;
    }
    std::string causes;
    if (figures.missingPackets)
        causes += "; missing packets: raise net.core.rmem_max and TAVRI_ARAVIS_SOCKET_BUFFER, check the link's MTU "
                  "against the packet size, or set TAVRI_ARAVIS_PACKET_DELAY";
    if (figures.underruns) causes += "; underruns: images came faster than requests were queued again";
    TAVRI_LOG(3, line + causes);
}

}  // namespace Tavri::aravis
