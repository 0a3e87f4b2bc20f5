// Several cameras' sets held to one another: pulse numbers where the rig knows them,
// else frame ids counted from each set's first image and capture times.

#include "TavriAPI/SetMatch.h"

#include "TavriAPI/RecordMath.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cmath>

namespace Tavri {

namespace {

// Capture time where the backend knows it, else the host's time of the take.
double captureOf(const ImageRecord& r) {
    return static_cast<double>(known(r.captureSteadyNs) ? r.captureSteadyNs : r.hostTimeNs);
}

double periodOf(const CameraSet& first, const MatchOptions& options) {
    if (options.periodNs > 0.0) return options.periodNs;
    if (first.verdict && first.verdict->periodNs > 0.0) return first.verdict->periodNs;
    std::vector<double> intervals;
    const auto& images = first.records->images;
    for (std::size_t i = 1; i < images.size(); ++i) intervals.push_back(captureOf(images[i]) - captureOf(images[i - 1]));
    return median(std::move(intervals));
}

// Where image `k` of `other` stands against image `k` of `first`, in triggers: 0 in
// step. `offBeat` tells a time that fits no trigger.
struct Step {
    std::int64_t offset = 0;
    bool offBeat = false;
    std::string what;  // "answers pulse 6, SIM0001 image 5 answers pulse 5"
};

Step byPulse(const CameraSet& first, const ImageRecord& a, const ImageRecord& b) {
    const auto offset = static_cast<std::int64_t>(b.pulse) - static_cast<std::int64_t>(a.pulse);
    return {offset, false,
            (boost::format("answers pulse %d, %s image %d answers pulse %d") % b.pulse % first.serial % a.index % a.pulse).str()};
}

Step byFramesAndTime(const CameraSet& first, const CameraSet& other, std::size_t k, double periodNs,
                     const MatchOptions& options) {
    const auto& a = first.records->images;
    const auto& b = other.records->images;
    // Frame ids count from each set's first image: cameras number their frames apart.
    const std::uint64_t framesA = k == 0 ? 0 : framesBetween(a[0], a[k]);
    const std::uint64_t framesB = k == 0 ? 0 : framesBetween(b[0], b[k]);
    if (framesA != 0 && framesB != 0 && framesA != framesB)
        return {static_cast<std::int64_t>(framesB) - static_cast<std::int64_t>(framesA), false,
                (boost::format("is frame %d after its first, %s image %d frame %d") % framesB % first.serial % k % framesA).str()};
    // Frame ids that agree settle every image after the first; the first, where a
    // camera that took an extra frame or missed the first trigger falls out of step,
    // is held to the capture times.
    if (framesA != 0 && framesB != 0) return {};
    const double apart = captureOf(b[k]) - captureOf(a[k]);
    if (periodNs <= 0.0 || !options.byTime) return {};
    const double tolerance = options.tolerance;
    const auto offset = static_cast<std::int64_t>(std::llround(apart / periodNs));
    const bool offBeat = std::fabs(apart - static_cast<double>(offset) * periodNs) > tolerance * periodNs;
    return {offset, offBeat,
            (boost::format("captured %.2f ms from %s image %d (%.2f periods; at most %.2f allowed)") % (apart / 1e6) %
             first.serial % k % (apart / periodNs) % tolerance)
                .str()};
}

std::string describeProblem(const std::string& serial, std::int32_t image, const std::string& what) {
    return (boost::format("%s image %d: %s") % serial % image % what).str();
}

}  // namespace

SetMatch matchSets(const std::vector<CameraSet>& cameras, const MatchOptions& options) {
    SetMatch match;
    if (cameras.empty()) return match;
    const CameraSet& first = cameras.front();
    std::size_t common = first.records->images.size();
    bool allPulses = true;
    for (const auto& camera : cameras) {
        common = std::min(common, camera.records->images.size());
        for (const auto& r : camera.records->images) allPulses = allPulses && r.pulse != ImageRecord::kNoPulse;
    }
    match.judgedBy = allPulses ? "pulse numbers" : "frame ids and capture times";
    const double periodNs = periodOf(first, options);

    for (const auto& camera : cameras) {
        if (camera.verdict)
            for (const auto& p : camera.verdict->problems)
                match.problems.push_back({camera.serial, p.image, MatchCause::BrokenSet,
                                          describeProblem(camera.serial, p.image, std::string(causeName(p.cause)) +
                                                                                      " in its own set: " + p.detail)});
        if (&camera == &first) continue;
        const auto count = camera.records->images.size();
        if (count != first.records->images.size()) {
            const auto at = static_cast<std::int32_t>(common);
            match.problems.push_back(
                {camera.serial, at, MatchCause::CountDiffers,
                 (boost::format("%s has %d images, %s %d") % camera.serial % count % first.serial % first.records->images.size())
                     .str()});
        }
        // One problem where the camera falls out of step (or out of beat), not one per image after it.
        Step before;
        for (std::size_t k = 0; k < common; ++k) {
            const auto& a = first.records->images[k];
            const auto& b = camera.records->images[k];
            const bool pulses = a.pulse != ImageRecord::kNoPulse && b.pulse != ImageRecord::kNoPulse;
            const Step step = pulses ? byPulse(first, a, b) : byFramesAndTime(first, camera, k, periodNs, options);
            const bool outOfStep = step.offset != 0 && step.offset != before.offset;
            if (outOfStep || (step.offBeat && !before.offBeat)) {
                const auto image = static_cast<std::int32_t>(k);
                match.problems.push_back({camera.serial, image, MatchCause::OtherTrigger,
                                          describeProblem(camera.serial, image, step.what)});
            }
            before = step;
        }
    }

    std::vector<double> skews;
    for (std::size_t k = 0; k < common; ++k) {
        double low = HUGE_VAL, high = -HUGE_VAL;
        for (const auto& camera : cameras) {
            const auto t = static_cast<double>(camera.records->images[k].hostTimeNs);
            low = std::min(low, t);
            high = std::max(high, t);
        }
        skews.push_back(high - low);
    }
    match.largestSkewNs = skews.empty() ? 0.0 : *std::max_element(skews.begin(), skews.end());
    match.medianSkewNs = median(std::move(skews));
    return match;
}

std::string SetMatch::describe() const {
    if (matched()) return "matched";
    std::string text;
    for (const auto& problem : problems) text += (text.empty() ? "" : "\n") + problem.detail;
    return text;
}

}  // namespace Tavri
