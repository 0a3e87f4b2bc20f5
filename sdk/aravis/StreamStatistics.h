#pragma once
// Aravis's own account of a stream: frames completed and failed, and on GigE the
// packets that went missing or had to be sent again. Read when acquisition starts
// and stops, so each acquisition is told on its own.

#include <arv.h>

#include <string>

#include "sdk/StreamFigures.h"

namespace Tavri::aravis {

struct StreamStatistics : StreamFigures {
    static StreamStatistics read(ArvStream* stream);
    StreamStatistics operator-(const StreamStatistics& earlier) const;
};

// Logs one acquisition's figures: level 1, or level 3 with the usual causes when
// anything was lost.
void logAcquisition(const std::string& deviceId, const StreamStatistics& figures);

}  // namespace Tavri::aravis
