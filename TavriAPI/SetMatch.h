#pragma once
// Whether the sets several cameras took together belong together: image k of every
// camera must answer the same trigger. Pure, like judgeSet, and for every host.

#include <cstdint>
#include <string>
#include <vector>

#include "TavriAPI/ImageRecords.h"

namespace Tavri {

// One camera's set: its serial, its records and, when the caller has it, its verdict.
struct CameraSet {
    std::string serial;
    const SequenceRecords* records = nullptr;
    const SetVerdict* verdict = nullptr;  // null: not judged
};

enum class MatchCause { CountDiffers, OtherTrigger, BrokenSet };

struct MatchProblem {
    std::string serial;  // the camera at fault (never the first, which the others are held to)
    std::int32_t image = 0;
    MatchCause cause = MatchCause::OtherTrigger;
    std::string detail;  // a sentence for people that names camera and image
};

struct MatchOptions {
    // The trigger period when the caller knows it; 0: the first camera's verdict's, else
    // the median interval of its capture times.
    double periodNs = 0.0;
    // Without pulse numbers, images whose capture times lie further apart than this
    // share of the period answer different triggers.
    double tolerance = 0.25;
    // False where the triggers keep no steady pace: capture times then cannot tell
    // them apart, and frame ids alone match the sets.
    bool byTime = true;
};

struct SetMatch {
    std::vector<MatchProblem> problems;
    // What told the triggers apart: "pulse numbers" (every image's known) or "frame ids
    // and capture times" (used for the images whose pulse is unknown).
    std::string judgedBy;
    // The spread of the cameras' host times (the take of image k) over the images all
    // cameras have: its median and its largest, in nanoseconds.
    double medianSkewNs = 0.0;
    double largestSkewNs = 0.0;

    bool matched() const { return problems.empty(); }
    // "matched", or one line per problem.
    std::string describe() const;
};

// Holds every camera to the first: the count of images, each camera's own verdict,
// and for each image the trigger it answers. Where a camera falls out of step, one
// problem names the image it starts at.
SetMatch matchSets(const std::vector<CameraSet>& cameras, const MatchOptions& options = {});

}  // namespace Tavri
