#pragma once
// Per-image records of grab sequences and continuous grabbing, the verdict on a set,
// and the interface through which a host reads them. A host reaches the interface
// with dynamic_cast from its CameraDriver*: CameraDriver itself is unchanged.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tavri {

struct ImageSet;

// One image as the driver took it.
struct ImageRecord {
    static constexpr std::uint64_t kUnknown = ~std::uint64_t{0};
    static constexpr std::uint32_t kNoPulse = ~std::uint32_t{0};
    // The status of a complete image whose byte count is not the colour mode's: the
    // camera did not take the pixel format the mode sent.
    static constexpr std::uint32_t kWrongSize = 0xFFFF0001u;
    static constexpr const char* kWrongSizeText = "image size is not the colour mode's";

    std::int32_t index = 0;
    // The trigger the image answers, counted from 0 at the acquisition start (the
    // verdict fills it in; -1: none, for a stale or failed frame).
    std::int32_t trigger = -1;
    std::uint64_t frameNumber = kUnknown;
    std::uint64_t frameIdWrap = 0;   // see FrameInfo: 0 when the number never wraps
    std::uint64_t frameIdFirst = 0;
    std::uint64_t cameraTimeNs = kUnknown;
    std::uint64_t captureSteadyNs = kUnknown;  // capture on the host's steady clock
    std::uint64_t hostTimeNs = 0;              // steady clock right after the take
    std::uint32_t pulse = kNoPulse;            // the simulated rig's ground truth
    std::uint32_t pattern = kNoPulse;
    std::uint64_t bytes = 0;  // the payload the camera delivered
    // 0: complete. Else the take's result code, or the backend's status.
    std::uint32_t status = 0;
    const char* statusText = "";  // static storage
};

// The records of one sequence. `images` holds one record per image taken, plus one
// for a failed take, in order; `requested` is n.
struct SequenceRecords {
    std::int32_t requested = 0;
    std::uint64_t startSteadyNs = 0;  // just before the driver started acquisition
    std::vector<ImageRecord> images;
    // Why the worker stopped before n (empty when it did not).
    std::string endedBecause;
};

enum class SetProblemCause { MissingTrigger, ExtraFrame, StaleFrame, FailedFrame, EndedEarly };

// The word a log line or file uses for a cause: "missing trigger", "extra frame", ...
const char* causeName(SetProblemCause cause);

struct SetProblem {
    std::int32_t image = 0;    // the image at fault (for a missing trigger: the first after it)
    std::int32_t trigger = 0;  // the trigger that image should have answered
    SetProblemCause cause = SetProblemCause::MissingTrigger;
    std::string detail;        // a sentence for people
};

struct VerdictOptions {
    // The trigger period when the caller knows it; 0: the median interval of the set.
    double periodNs = 0.0;
    // The time from the acquisition start to the first trigger when the caller knows
    // it (a projector started in step with the cameras); negative: unknown, and a
    // trigger missed before the first image cannot be seen.
    double firstTriggerNs = -1.0;
    // False for triggers that come at no steady pace (pulsed by hand or by a program):
    // images are then tied to triggers by frame numbers alone.
    bool byTime = true;
};

struct SetVerdict {
    std::vector<SetProblem> problems;
    double periodNs = 0.0;  // the period the intervals were judged by (0: not judged)
    // The trigger each record answers (-1: none), record by record.
    std::vector<std::int32_t> triggers;

    bool whole() const { return problems.empty(); }
    // "whole", or one line per problem.
    std::string describe() const;
};

// How far the camera counted from `a` to `b` (1: no frame between), minding a number
// that wraps; 0 when the numbers cannot tell (unknown, or counted again from the start).
std::uint64_t framesBetween(const ImageRecord& a, const ImageRecord& b);

// Judges a set from its records: pure, the same for the driver and every host.
SetVerdict judgeSet(const SequenceRecords& records, const VerdictOptions& options = {});

// The host's view of the records. After finishGrabSequenceAsync: the records and the
// verdict of the set just finished (valid until the next start). After getNextImage
// or grab: the record of that image.
class ImageRecordSource {
public:
    virtual ~ImageRecordSource();
    virtual const SequenceRecords& sequenceRecords() const = 0;
    virtual const SetVerdict& sequenceVerdict() const = 0;
    virtual const ImageRecord& lastImageRecord() const = 0;
    // The set the last sequence filled, also when finishing it failed (the stream of a
    // camera that is gone cannot be stopped): the images its records count as taken.
    virtual std::shared_ptr<ImageSet> sequenceSet() const = 0;
};

}  // namespace Tavri
