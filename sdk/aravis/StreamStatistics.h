#pragma once
// Aravis's own account of a stream: frames completed and failed, and on GigE the
// packets that went missing or had to be sent again. Read when acquisition starts
// and stops, so each acquisition is told on its own.

#include <arv.h>

#include <cstdint>
#include <string>

namespace Tavri::aravis {

struct StreamStatistics {
    std::uint64_t completed = 0;
    std::uint64_t failures = 0;
    std::uint64_t timeouts = 0;
    std::uint64_t underruns = 0;  // frames that found no buffer waiting
    std::uint64_t missingPackets = 0;
    std::uint64_t resentPackets = 0;

    static StreamStatistics read(ArvStream* stream);
    StreamStatistics operator-(const StreamStatistics& earlier) const;
    // Anything the caller did not get: a failed, timed-out or dropped frame, or a
    // packet that never came (resent packets arrived after all).
    bool lostAnything() const;
    // "12 completed, 0 failures, 0 timeouts, 0 underruns, 0 missing packets, 0 resent packets"
    std::string describe() const;
};

// Logs one acquisition's figures: level 1, or level 3 with the usual causes when
// anything was lost.
void logAcquisition(const std::string& deviceId, const StreamStatistics& figures);

}  // namespace Tavri::aravis
