#pragma once
// The simulated camera rig: a `TeliSdk` over in-process cameras, a hardware trigger
// line driven by a simulated pattern projector, and faults on demand.
//
// Reaching it
//   - through the driver: TAVRI_TELI_SDK=sim selects `Tavri::sim::makeSdk()`, which
//     builds a SimSdk over the rig file named by TAVRI_SIM_RIG (the default rig when
//     unset); a test reaches that instance with
//     `dynamic_cast<Tavri::sim::SimSdk&>(Tavri::activeSdk())`;
//   - directly: construct a SimSdk (default rig or a RigConfig) and call it as a TeliSdk.
//
// Cameras. Each rig camera has a serial, model and vendor text (sdkGetCameraInfo: first
// text = vendor, second = model), a sensor size, a list of pixel formats and ranges of
// exposure (microseconds), gain (dB), black level (DN) and balance ratios. A value is
// stored as a camera stores it: rounded to the nearest step of its increment from the
// minimum (balance ratios on a 1/64 grid by default), so read-back can differ from the
// request; a value outside [min, max] or not finite is refused. Width and height are
// the top-left region of the sensor, multiples of their increments, at least
// kMinWidth x kMinHeight; they and the pixel format cannot change while acquiring.
// Settings outlive close and reopen (the camera stays powered); setRig resets them.
//
// Stream. sdkOpenStream reports as payload size the largest image of the camera's pixel
// formats at its sensor size. Requests are held by the driver, waiting (enqueued), in
// flight (being filled or on its way) or completed. Each frame goes into the buffer of
// the oldest waiting request; a frame that finds no waiting request is lost. The
// stream's event is signalled once per completion and again after a take that leaves
// completed requests, so one wait per take never misses an image; a take that leaves
// no completed request (or finds none) consumes a signal still pending, so a signal
// always stands for a waiting image, also after a drain without waits. sdkFlushWaitQueue
// gives waiting requests back to the driver; requests in flight complete as usual. A
// frame larger than its request's buffer completes as a failure: the take hands the
// request back with size 0 and returns FrameTooLarge, and nothing is written.
// sdkStartStream on a running stream restarts it (frame and pattern count from 0);
// sdkStopStream on a stopped stream succeeds; stopping delivers frames in flight.
//
// Where frames come from while acquisition runs (the trigger features):
//   trigger source 64 (software), either mode -> one frame per sdkExecuteSoftwareTrigger
//   trigger mode on,  source 0 (line)         -> one frame per projector pulse
//   trigger mode off, source 0                -> free run at the camera's frame rate
// A software trigger is refused (SoftwareTriggerNotSelected) unless the source is 64,
// and ignored (success, no frame) while acquisition is stopped. The activation (0
// falling, 1 rising) picks the pulse edge: a falling edge comes a pulse width after the
// rising one. Trigger sequence 0..kMaxTriggerSequence is stored; every sequence takes
// one frame per trigger.
//
// The projector. While a camera is line-triggered and acquiring, the projector shows
// the structured-light sequence and pulses the line once per pattern, at the rig's
// projector rate, starting one period after sdkStartStream; pulse k shows pattern k,
// whose picture is sequence entry k mod patternCount(): white, black, grayBits Gray-code
// stripe patterns (most significant bit first), then phaseSteps phase-shifted
// sinusoids. Frames that are not line-triggered see the projector's flat white field.
//
// Every frame is numbered from 0 at sdkStartStream (lost and dropped frames too) and
// carries a stamp in its top-left corner (see readStamp): two rows of 16 cells of
// kStampCell x kStampCell pixels, row 0 the frame number, row 1 the pattern number
// (kNoPattern for a frame that is not line-triggered), most significant bit first,
// a set bit full white (255 in every channel), a clear bit 0. The rest of the image is
// the scene (a sphere on a tilted textured plane) under the pattern, in the current
// pixel format (Mono8, RGB8, or a BayerBG8 mosaic: B G / G R at the top left), scaled by
// exposure, gain and balance ratios, raised by the black level, with a little
// deterministic noise. Everything depends only on the rig (and its seed), the
// settings and the frame and pattern numbers: renderFrame gives the exact bytes.
//
// Benchmark mode (RigConfig::render false): no producer thread, no rendering. While
// acquisition runs, every waiting request completes at once (at start, and on enqueue)
// with only its stamp written, as a camera's DMA would have filled it. Frame faults of
// kind Oversize apply; the others need the producer and are ignored there.
//
// Faults (for tests and demos; set by the rig file or the calls below):
//   - an operation, by name ("sdkOpenCamera"), returns a chosen code once, always, or on
//     its k-th call from when the fault was set; the call then has no other effect;
//   - a camera's condition: Hung (sdkGetCameraInfo and every control answer 19; an open
//     succeeds and its close clears the hang, as the driver's connection reset expects),
//     Dead (everything that reaches the camera answers 19, the open too), Unplugged (gone
//     from the enumeration; calls through its handles answer CameraUnplugged). A camera
//     that is not Normal takes no frames. Operations that only give back host-side
//     resources (close camera, close stream, release request, stop, flush) and take
//     always do their local part and succeed whatever the condition, so nothing leaks;
//   - unplugged mid-stream: after a given number of further captured frames;
//   - frame faults on selected frames: dropped (never delivered), late (delivered N ms
//     after capture; later frames wait behind it, delivery stays in order), burst (held
//     back until N of them are captured, then completed together) or oversize (larger
//     than the request's buffer).
//
// Threads: every operation may be called from any thread; each camera has one mutex.
// A stream that acquires (and renders) has one producer thread, started by
// sdkStartStream and joined by sdkStopStream, sdkCloseStream, sdkCloseCamera,
// sdkTerminate, setRig and the destructor; it never sleeps without a condition
// variable, so the join is prompt. Handles are pointers to objects the SimSdk keeps
// until it is destroyed, so a stale handle is always recognised (ClosedHandle).
// Result codes: sdk/sim/SimResult.h.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sdk/TeliSdk.h"
#include "sdk/sim/SimResult.h"

namespace Tavri::sim {

constexpr std::uint32_t kMinWidth = 128;   // room for the stamp
constexpr std::uint32_t kMinHeight = 16;
constexpr std::uint32_t kStampCell = 8;
constexpr std::uint32_t kStampBits = 16;
constexpr std::uint32_t kNoPattern = 0xFFFF;
constexpr std::uint32_t kMaxTriggerSequence = 6;
constexpr std::size_t kMaxRequestsPerStream = 1024;

// min <= initial <= max, increment > 0. Values are stored as
// min + round((v - min) / increment) * increment.
struct FeatureRange {
    double min = 0.0;
    double max = 0.0;
    double increment = 1.0;
    double initial = 0.0;
};

enum class CameraCondition { Normal, Hung, Dead, Unplugged };

// Frames are numbered from 0 at each acquisition start. A fault touches frame f when
// f >= first, (f - first) is a multiple of every, and (f - first) / every < count.
struct FrameFault {
    enum class Kind { Drop, Late, Burst, Oversize };
    Kind kind = Kind::Drop;
    std::uint32_t first = 0;
    std::uint32_t count = 0xFFFFFFFFu;
    std::uint32_t every = 1;
    std::uint32_t delayMs = 0;    // Late: delivery this long after capture
    std::uint32_t burst = 2;      // Burst: frames held back per group (>= 1)
    std::uint32_t extraBytes = 1; // Oversize: bytes beyond the request's buffer (>= 1)
};

struct CameraConfig {
    std::string serial;
    std::string model = "BU205MCF";
    std::string vendor = "Toshiba Teli (simulated)";
    std::uint32_t width = 1920;  // sensor size
    std::uint32_t height = 1200;
    std::uint32_t widthIncrement = 8;
    std::uint32_t heightIncrement = 2;
    std::vector<std::uint32_t> pixelFormats{PixelFormat::Mono8, PixelFormat::RGB8, PixelFormat::BayerBG8};
    FeatureRange exposure{20.0, 1000000.0, 1.0, 10000.0};
    FeatureRange gain{0.0, 24.0, 0.1, 0.0};
    FeatureRange blackLevel{0.0, 64.0, 0.25, 0.0};
    FeatureRange balanceRatio{0.25, 4.0, 1.0 / 64.0, 1.0};
    double frameRate = 0.0; // free run, frames per second; 0 takes the rig's
    CameraCondition condition = CameraCondition::Normal;
    std::int64_t unplugAfterFrames = -1; // -1: never
    std::vector<FrameFault> frameFaults;
};

struct ProjectorConfig {
    double rate = 60.0;           // pulses (patterns) per second
    std::uint32_t grayBits = 7;
    std::uint32_t phaseSteps = 8;
    double phasePeriod = 0.0;     // sinusoid period in pixels; 0: width / 2^grayBits
    double pulseWidthMs = 1.0;
};

enum class FaultWhen { Once, Always, OnCall };

struct OperationFault {
    std::string operation;   // one of kSdkOrdinals' names
    Result code = 1;
    FaultWhen when = FaultWhen::Once;
    std::uint32_t call = 1;  // OnCall: the k-th call from when the fault was set (1 = next)
};

struct RigConfig {
    std::vector<CameraConfig> cameras;
    double frameRate = 30.0;
    ProjectorConfig projector;
    bool render = true;
    std::uint64_t seed = 1;
    std::vector<OperationFault> faults;
};

// Two cameras, serials "SIM0001" and "SIM0002", 1920 x 1200, Mono8, RGB8, BayerBG8.
RigConfig defaultRig();
// Checks a rig; throws RuntimeException naming the camera and field at fault.
void validateRig(const RigConfig& rig);
// Parses a rig description (examples: sdk/sim/rigs/default.json and faulty.json). Every
// key is optional and unknown keys are refused:
//   seed, frameRate, render (false: benchmark mode),
//   projector {rate, grayBits, phaseSteps, phasePeriod, pulseWidthMs},
//   cameras [{serial, model, vendor, width, height, widthIncrement, heightIncrement,
//             pixelFormats ["Mono8", "RGB8", "BayerBG8" or PFNC numbers],
//             exposure|gain|blackLevel|balanceRatio {min, max, increment, initial},
//             frameRate, condition ("normal", "hung", "dead", "unplugged"),
//             unplugAfterFrames,
//             frameFaults [{kind ("drop", "late", "burst", "oversize"), first, count,
//                           every, delayMs, burst, extraBytes}]}]  (default: two cameras)
//   faults [{operation, code, when ("once", "always", "call"), call}].
// `sourceName` names the text in messages. Throws RuntimeException
// "<sourceName>:<line>:<column>: <what>" for malformed JSON and for a wrong value alike
// (the value's position and JSON pointer).
RigConfig parseRig(const std::string& text, const std::string& sourceName);
RigConfig loadRigFile(const std::string& path);
// The rig TAVRI_SIM_RIG names, or the default rig when it is unset or empty.
RigConfig rigFromEnvironment();

// Bytes per pixel of a PFNC code the rig knows (1 or 3), 0 for any other.
std::uint32_t bytesPerPixel(std::uint32_t pixelFormat);
// Entries of the projector's structured-light sequence: 2 + grayBits + phaseSteps.
std::uint32_t patternCount(const ProjectorConfig& projector);

// What a camera is set to when it takes a frame.
struct FrameSettings {
    std::uint32_t pixelFormat = PixelFormat::Mono8;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    double exposure = 10000.0;
    double gain = 0.0;
    double blackLevel = 0.0;
    double redRatio = 1.0;
    double blueRatio = 1.0;
};

struct FrameStamp {
    std::uint32_t frame = 0;
    std::uint32_t pattern = kNoPattern;
};

// Reads the stamp of an image of the given size and format (false: too small or an
// unknown format).
bool readStamp(const std::uint8_t* image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelFormat,
               FrameStamp* stamp);
// The exact bytes camera `camera` (rig order) of `rig` delivers as frame `frame`
// showing pattern `pattern` (kNoPattern: flat white) with the given settings.
std::vector<std::uint8_t> renderFrame(const RigConfig& rig, std::size_t camera, const FrameSettings& settings,
                                      std::uint32_t frame, std::uint32_t pattern);

class SimSdk : public TeliSdk {
public:
    SimSdk();
    explicit SimSdk(RigConfig rig);  // throws RuntimeException for an invalid rig
    ~SimSdk() override;              // stops and joins every producer thread
    SimSdk(const SimSdk&) = delete;
    SimSdk& operator=(const SimSdk&) = delete;

    Result sdkInitialize(std::uint32_t reserved) override;
    Result sdkTerminate() override;
    Result sdkGetCameraCount(std::uint32_t* count) override;
    Result sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) override;
    Result sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive, void* reserved2,
                         std::uint32_t mode) override;
    Result sdkCloseCamera(CameraHandle camera) override;
    Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                         std::uint32_t reserved) override;
    Result sdkCloseStream(StreamHandle stream) override;
    Result sdkStartStream(StreamHandle stream, std::uint32_t mode) override;
    Result sdkStopStream(StreamHandle stream) override;
    Result sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) override;
    Result sdkReleaseRequest(StreamHandle stream, RequestHandle request) override;
    Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) override;
    Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                   std::uint32_t* size) override;
    Result sdkFlushWaitQueue(StreamHandle stream) override;
    Result sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) override;
    Result sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) override;
    Result sdkGetWidth(CameraHandle camera, std::uint32_t* width) override;
    Result sdkSetWidth(CameraHandle camera, std::uint32_t width) override;
    Result sdkGetHeight(CameraHandle camera, std::uint32_t* height) override;
    Result sdkSetHeight(CameraHandle camera, std::uint32_t height) override;
    Result sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) override;
    Result sdkGetTriggerMode(CameraHandle camera, bool* on) override;
    Result sdkSetTriggerMode(CameraHandle camera, bool on) override;
    Result sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) override;
    Result sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) override;
    Result sdkExecuteSoftwareTrigger(CameraHandle camera) override;
    Result sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) override;
    Result sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) override;
    Result sdkGetExposureTime(CameraHandle camera, double* value) override;
    Result sdkSetExposureTime(CameraHandle camera, double value) override;
    Result sdkGetGain(CameraHandle camera, double* value) override;
    Result sdkSetGain(CameraHandle camera, double value) override;
    Result sdkGetBlackLevel(CameraHandle camera, double* value) override;
    Result sdkSetBlackLevel(CameraHandle camera, double value) override;
    Result sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) override;
    Result sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) override;

    // ---- Controls for tests and demos. Thread-safe. `camera` is the rig index, which
    // does not shift when a camera is unplugged; an index outside the rig throws
    // std::out_of_range.

    // Replaces the rig, resetting settings, faults and statistics. Refused (false)
    // while a camera is open; throws RuntimeException for an invalid rig.
    bool setRig(RigConfig rig);
    RigConfig rig() const;

    // Throws std::invalid_argument for a name that is not an SDK operation.
    void failOperation(const std::string& operation, Result code, FaultWhen when = FaultWhen::Once,
                       std::uint32_t call = 1);
    void clearOperationFaults();

    void setCondition(std::size_t camera, CameraCondition condition);
    CameraCondition condition(std::size_t camera) const;
    // The camera becomes Unplugged once `frames` more frames have gone into requests.
    void unplugAfterFrames(std::size_t camera, std::uint32_t frames);
    void addFrameFault(std::size_t camera, const FrameFault& fault);
    void clearFrameFaults(std::size_t camera);

    struct CameraStats {
        std::uint64_t triggers = 0;   // frames started (numbered), whatever became of them
        std::uint64_t completed = 0;  // requests completed with an image
        std::uint64_t failed = 0;     // requests completed as failures (too large)
        std::uint64_t dropped = 0;    // frames dropped by a fault
        std::uint64_t lost = 0;       // frames that found no waiting request
        std::uint64_t ignoredTriggers = 0; // software triggers while not acquiring
    };
    CameraStats stats(std::size_t camera) const;

    // Producer threads alive now: 0 once every stream is stopped.
    std::size_t runningThreads() const;
    // Camera, stream and request handles open now: 0 once everything was given back.
    std::size_t openHandles() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

// The factory of sdk/Backends.h: a SimSdk over rigFromEnvironment().
std::unique_ptr<TeliSdk> makeSdk();

}  // namespace Tavri::sim
