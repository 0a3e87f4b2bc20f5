#pragma once
// A backend's account of one acquisition: frames completed and failed, and on GigE the
// packets that went missing or had to be sent again. The backend logs it as one line
// when acquisition stops; a host that taps the driver's log reads it back from that
// line. Both sides go through this header, so the line is spelt once.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace Tavri {

struct StreamFigures;

namespace streamfigures {
// Namespace-scope constants keep internal linkage: no symbol a plug-in would have to
// share with its host, so the plug-in can still be unloaded.
constexpr const char* kLead = "stream of ";
struct Field {
    std::uint64_t StreamFigures::*value;
    const char* label;
};
}  // namespace streamfigures

struct StreamFigures {
    std::uint64_t completed = 0;
    std::uint64_t failures = 0;
    std::uint64_t timeouts = 0;
    std::uint64_t underruns = 0;  // frames that found no buffer waiting
    std::uint64_t missingPackets = 0;
    std::uint64_t resentPackets = 0;

    // Anything the caller did not get: a failed, timed-out or dropped frame, or a
    // packet that never came (resent packets arrived after all).
    bool lostAnything() const { return failures || timeouts || underruns || missingPackets; }

    // "12 completed, 0 failures, 0 timeouts, 0 underruns, 0 missing packets, 0 resent packets"
    std::string describe() const {
        std::string text;
        for (const auto& field : fields()) {
            if (!text.empty()) text += ", ";
            text += std::to_string(this->*field.value) + ' ' + field.label;
        }
        return text;
    }

    // "stream of <source>: <describe()>", the backend's line.
    std::string line(const std::string& source) const { return streamfigures::kLead + source + ": " + describe(); }

    // The figures of the first such line within `line`.
    static std::optional<StreamFigures> fromLine(const std::string& line) {
        std::size_t at = line.find(streamfigures::kLead);
        if (at == std::string::npos || (at = line.find(": ", at + std::strlen(streamfigures::kLead))) == std::string::npos)
            return std::nullopt;
        at += 2;
        StreamFigures figures;
        bool first = true;
        for (const auto& field : fields()) {
            if (!first) {
                if (line.compare(at, 2, ", ") != 0) return std::nullopt;
                at += 2;
            }
            first = false;
            char* end = nullptr;
            const char* begin = line.c_str() + at;
            if (*begin < '0' || *begin > '9') return std::nullopt;
            figures.*field.value = std::strtoull(begin, &end, 10);
            at = static_cast<std::size_t>(end - line.c_str());
            const std::string label = std::string(" ") + field.label;
            if (line.compare(at, label.size(), label) != 0) return std::nullopt;
            at += label.size();
        }
        return figures;
    }

private:
    static std::array<streamfigures::Field, 6> fields() {
        return {{{&StreamFigures::completed, "completed"},
                 {&StreamFigures::failures, "failures"},
                 {&StreamFigures::timeouts, "timeouts"},
                 {&StreamFigures::underruns, "underruns"},
                 {&StreamFigures::missingPackets, "missing packets"},
                 {&StreamFigures::resentPackets, "resent packets"}}};
    }
};

}  // namespace Tavri
