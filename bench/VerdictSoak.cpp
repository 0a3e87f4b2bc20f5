// verdict_soak: judges synthetic 42-image sets whose triggers, captures and deliveries
// jitter, and counts the verdicts that are wrong: any problem named on a clean set (a
// false alarm), and a fault that is missed or named otherwise than it was made.
//
// Each time base the backends give is tried: the camera's clock with frame ids (sim,
// Aravis), with 16-bit ids that wrap inside the set, without ids, and the host's clock
// alone (the vendor DLL). Triggers jitter by up to a quarter period either way, and the
// host takes each image after a delivery latency of its own.
//
// Usage: verdict_soak [sets per case, default 10000] [seed, default 1]; with
// VERDICT_SOAK_DUMP set, the records of the first wrong verdict of each row are printed.

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "TavriAPI/ImageRecords.h"

namespace {

using Tavri::ImageRecord;
using Tavri::SetProblemCause;

constexpr int kImages = 42;

enum class Clock { CameraIds, CameraWrappingIds, CameraNoIds, HostOnly };
enum class Fault { None, MissedPulse, DoublePulse, Stale, Failed };

struct Case {
    const char* name;
    Clock clock;
    double rateHz;
    // The rate the caller names (0: the verdict takes the median interval).
    double statedRateHz;
};

const Case kCases[] = {
    {"camera clock, frame ids, 60 Hz", Clock::CameraIds, 60, 0},
    {"camera clock, frame ids, 1 kHz", Clock::CameraIds, 1000, 0},
    {"camera clock, 16-bit ids wrap, 120 Hz", Clock::CameraWrappingIds, 120, 0},
    {"camera clock, no ids, 60 Hz", Clock::CameraNoIds, 60, 0},
    {"camera clock, stated rate 0.5 % off", Clock::CameraIds, 60, 60 * 1.005},
    {"host clock only, 30 Hz", Clock::HostOnly, 30, 0},
    {"host clock only, 120 Hz, rate stated", Clock::HostOnly, 120, 120},
};

const Fault kFaults[] = {Fault::None, Fault::MissedPulse, Fault::DoublePulse, Fault::Stale, Fault::Failed};

const char* faultName(Fault f) {
    switch (f) {
    case Fault::None: return "clean";
    case Fault::MissedPulse: return "missed pulse";
    case Fault::DoublePulse: return "double pulse";
    case Fault::Stale: return "stale frame";
    case Fault::Failed: return "failed frame";
    }
    return "";
}

using Expected = std::vector<std::tuple<int, int, SetProblemCause>>;

struct Synthetic {
    Tavri::SequenceRecords records;
    Expected expected;
};

class Generator {
public:
    explicit Generator(unsigned seed) : rng_(seed) {}

    // A set as the driver would record it: the projector starts one period after the
    // acquisition start and pulses at `rate`; `fault` hits the image at `at`.
    Synthetic make(const Case& c, Fault fault, int at) {
        const double period = 1e9 / c.rateHz;
        const double start = 5e9 + uniform(0, 1e9);
        const double cameraClockOffset = uniform(-4e9, 4e9);
        const double latency = 2e6 + uniform(0, 1e6);  // readout and transfer
        Synthetic s;
        s.records.requested = kImages;
        s.records.startSteadyNs = static_cast<std::uint64_t>(start);
        s.records.images.reserve(kImages + 1);
        std::uint64_t frame = c.clock == Clock::CameraWrappingIds ? 65535 - kImages / 2 : 1;
        // A quarter period of jitter in all: on the host's clock it is the delivery's,
        // on the camera's the trigger's. A bounce of the same edge shares it.
        double jitter = 0;
        const auto add = [&](double trigger) {
            ImageRecord r;
            r.index = static_cast<std::int32_t>(s.records.images.size());
            const double capture = trigger + 20e3;  // the exposure's start after the edge
            r.hostTimeNs = static_cast<std::uint64_t>(capture + latency + (c.clock == Clock::HostOnly ? jitter : uniform(0, 1e6)));
            if (c.clock != Clock::HostOnly) {
                r.captureSteadyNs = static_cast<std::uint64_t>(capture + jitter);
                r.cameraTimeNs = static_cast<std::uint64_t>(capture + jitter + cameraClockOffset + 1e10);
            }
            if (c.clock == Clock::CameraIds || c.clock == Clock::CameraWrappingIds) {
                r.frameNumber = frame;
                if (c.clock == Clock::CameraWrappingIds) {
                    r.frameIdWrap = 65535;
                    r.frameIdFirst = 1;
                }
            }
            frame = frame == 65535 && c.clock == Clock::CameraWrappingIds ? 1 : frame + 1;
            s.records.images.push_back(r);
        };
        if (fault == Fault::Stale) {
            jitter = uniform(-period / 4, period / 4);
            add(start - uniform(1, 3) * period);
            s.expected.emplace_back(0, 0, SetProblemCause::StaleFrame);
            at = 0;
        }
        for (int trigger = 0; static_cast<int>(s.records.images.size()) < kImages; ++trigger) {
            const double edge = start + period * (trigger + 1);
            if (fault == Fault::MissedPulse && trigger == at) {
                // The camera never saw it: no frame, and no frame number spent.
                s.expected.emplace_back(static_cast<int>(s.records.images.size()), trigger, SetProblemCause::MissingTrigger);
                continue;
            }
            jitter = uniform(-period / 4, period / 4);
            add(edge);
            if (fault == Fault::DoublePulse && trigger == at && static_cast<int>(s.records.images.size()) < kImages) {
                // A bouncing contact: the second edge comes well within the period.
                add(edge + uniform(0.02, 0.2) * period);
                // It holds the place of the next image, which should answer the next trigger.
                s.expected.emplace_back(static_cast<int>(s.records.images.size()) - 1, trigger + 1,
                                        SetProblemCause::ExtraFrame);
            }
        }
        if (fault == Fault::Failed) {
            // A failed take ends the worker: it is the set's last record.
            s.records.images.resize(static_cast<std::size_t>(at) + 1);
            s.records.endedBecause = "Failed to wait for camera image completion";
            auto& r = s.records.images.back();
            r.status = 3;
            r.statusText = "ARV_BUFFER_STATUS_MISSING_PACKETS";
            s.expected.emplace_back(at, 0, SetProblemCause::FailedFrame);
        }
        return s;
    }

    int position(int last) { return std::uniform_int_distribution<int>(1, last)(rng_); }

private:
    double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }
    std::mt19937_64 rng_;
};

// Whether the verdict names exactly the problems made; a failed frame's trigger is the
// verdict's own guess, so only its image and cause are compared.
bool named(const Tavri::SetVerdict& verdict, const Expected& expected) {
    if (verdict.problems.size() != expected.size()) return false;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& p = verdict.problems[i];
        const auto& [image, trigger, cause] = expected[i];
        if (p.image != image || p.cause != cause) return false;
        if (cause != SetProblemCause::FailedFrame && p.trigger != trigger) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const int sets = argc > 1 ? std::atoi(argv[1]) : 10000;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1u;
    if (sets < 1) {
        std::fprintf(stderr, "usage: verdict_soak [sets per case >= 1] [seed]\n");
        return 2;
    }
    Generator generator(seed);
    std::printf("%d sets of %d images per case and fault, seed %u; jitter a quarter period\n", sets, kImages, seed);
    std::printf("%-40s %-13s %9s\n", "case", "fault", "wrong");
    long falseAlarms = 0;
    long faultsWrong = 0;
    long faultsNotVisible = 0;
    for (const auto& c : kCases) {
        for (const Fault fault : kFaults) {
            // The host's clock alone cannot date a frame before the start.
            if (fault == Fault::Stale && c.clock == Clock::HostOnly) {
                std::printf("%-40s %-13s %9s\n", c.name, faultName(fault), "not seen");
                ++faultsNotVisible;
                continue;
            }
            Tavri::VerdictOptions options;
            if (c.statedRateHz > 0) options.periodNs = 1e9 / c.statedRateHz;
            long wrong = 0;
            std::string example;
            for (int n = 0; n < sets; ++n) {
                const auto s = generator.make(c, fault, generator.position(kImages - 1));
                const auto verdict = Tavri::judgeSet(s.records, options);
                if (!named(verdict, s.expected)) {
                    if (example.empty()) {
                        example = verdict.describe();
                        if (std::getenv("VERDICT_SOAK_DUMP"))
                            for (const auto& r : s.records.images)
                                std::printf("  %d host %.3f ms camera %.3f ms period %.3f ms\n", r.index,
                                            (r.hostTimeNs - s.records.startSteadyNs) / 1e6,
                                            (r.captureSteadyNs - s.records.startSteadyNs) / 1e6, verdict.periodNs / 1e6);
                    }
                    ++wrong;
                }
            }
            (fault == Fault::None ? falseAlarms : faultsWrong) += wrong;
            std::printf("%-40s %-13s %9ld%s%s\n", c.name, faultName(fault), wrong, example.empty() ? "" : "  e.g. ",
                        example.c_str());
        }
    }
    std::printf("false alarms on clean sets: %ld\n", falseAlarms);
    std::printf("faults missed or misnamed: %ld\n", faultsWrong);
    std::printf("fault kinds a time base cannot see: %ld\n", faultsNotVisible);
    return falseAlarms == 0 ? 0 : 1;
}
