#pragma once
// The simulated rig's configuration: cameras, projector, frame and operation faults,
// the ranges every value must lie in, and the settings a frame is taken with. Plain
// data; the file reader is sdk/sim/SimRig.h, the behaviour sdk/sim/README.md.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sdk/SdkOperations.h"
#include "sdk/TeliSdk.h"

namespace Tavri::sim {

constexpr std::uint32_t kMinWidth = 128;   // room for the stamp
constexpr std::uint32_t kMinHeight = 16;
constexpr std::uint32_t kMaxSensorSide = 16384;
constexpr std::uint32_t kStampCell = 8;
constexpr std::uint32_t kStampBits = 16;
constexpr std::uint32_t kNoPattern = 0xFFFF;
constexpr std::uint32_t kMaxTriggerSequence = 6;
constexpr std::size_t kMaxRequestsPerStream = 1024;
constexpr std::size_t kMaxCameras = 256;

// Documented finite ranges (validateRig refuses anything outside them, so the clocks
// cannot overflow and no pixel becomes NaN):
constexpr double kMinRate = 0.01;            // frames or pulses per second: at most 100 s apart
constexpr double kMaxRate = 1000.0;
constexpr double kMinPhasePeriod = 2.0;      // pixels (0: derived from the sensor width)
constexpr double kMaxPhasePeriod = 65536.0;
constexpr double kMaxFeatureMagnitude = 1e9; // |min|, |max| of a feature range
constexpr double kMinIncrement = 1e-6;       // feature increments: 1e-6 ... 1e9
constexpr std::uint32_t kMaxDelayMs = 60000; // a late frame: at most a minute late

// min <= initial <= max, increment > 0. Values are stored as
// min + round((v - min) / increment) * increment.
struct FeatureRange {
    double min = 0.0;
    double max = 0.0;
    double increment = 1.0;
    double initial = 0.0;
};

// The camera's numeric features. A feature is one row of kFeatureRows (its key in a rig
// file and its default range) plus its effect in SimRender: the rig file, the checks,
// the stored value and the SDK's get and set bodies all go through the row.
enum class Feature : std::uint8_t { Exposure, Gain, BlackLevel, RedRatio, BlueRatio };
constexpr std::size_t kFeatureCount = 5;

struct FeatureRow {
    Feature feature;
    const char* rigKey;
    FeatureRange range;
};
// Red and blue ratios share one key: a rig gives the balance ratio one range.
constexpr FeatureRow kFeatureRows[kFeatureCount] = {
    {Feature::Exposure, "exposure", {20.0, 1000000.0, 1.0, 10000.0}},
    {Feature::Gain, "gain", {0.0, 24.0, 0.1, 0.0}},
    {Feature::BlackLevel, "blackLevel", {0.0, 64.0, 0.25, 0.0}},
    {Feature::RedRatio, "balanceRatio", {0.25, 4.0, 1.0 / 64.0, 1.0}},
    {Feature::BlueRatio, "balanceRatio", {0.25, 4.0, 1.0 / 64.0, 1.0}},
};

// One value per feature, indexed by Feature.
template <typename Value>
struct PerFeature {
    std::array<Value, kFeatureCount> values;
    constexpr Value& operator[](Feature f) { return values[static_cast<std::size_t>(f)]; }
    constexpr const Value& operator[](Feature f) const { return values[static_cast<std::size_t>(f)]; }
};
constexpr PerFeature<FeatureRange> defaultRanges() {
    PerFeature<FeatureRange> ranges{};
    for (const auto& row : kFeatureRows) ranges[row.feature] = row.range;
    return ranges;
}
constexpr PerFeature<double> initialValues(const PerFeature<FeatureRange>& ranges) {
    PerFeature<double> values{};
    for (std::size_t i = 0; i < kFeatureCount; ++i) values.values[i] = ranges.values[i].initial;
    return values;
}

enum class CameraCondition { Normal, Hung, Dead, Unplugged };

// Frames are numbered from 0 at each acquisition start. A fault touches frame f when
// f >= first, (f - first) is a multiple of every, and (f - first) / every < count.
// MissedPulse and DoublePulse count projector pulses instead (from 0 at each start),
// Stale counts acquisition starts (from 0 when the rig is made): each start it
// touches begins with one frame captured a pulse period before the start.
struct FrameFault {
    enum class Kind { Drop, Late, Burst, Oversize, MissedPulse, DoublePulse, Stale };
    Kind kind = Kind::Drop;
    std::uint32_t first = 0;
    std::uint32_t count = 0xFFFFFFFFu;
    std::uint32_t every = 1;
    std::uint32_t delayMs = 0;    // Late: delivery this long after capture (<= kMaxDelayMs)
    std::uint32_t burst = 2;      // Burst: frames held back per group (1 ... kMaxRequestsPerStream)
    std::uint32_t extraBytes = 1; // Oversize: bytes beyond the request's buffer (>= 1)

    bool touches(std::uint32_t frame) const {
        if (frame < first) return false;
        const std::uint32_t offset = frame - first;
        return offset % every == 0 && offset / every < count;
    }
};

// How a camera numbers its frames: on from its last acquisition, again from 1 at each
// start, or in 16 bits from 65530 on, 65535 followed by 1 (GigE Vision's block id).
enum class FrameIds { Continue, Restart, Wrap16 };
constexpr std::uint64_t kWrap16Last = 65535;
constexpr std::uint64_t kWrap16Start = 65530;

struct CameraConfig {
    std::string serial;
    std::string model = "BU205MCF";
    std::string vendor = "Toshiba Teli (simulated)";
    std::uint32_t width = 1920;  // sensor size
    std::uint32_t height = 1200;
    std::uint32_t widthIncrement = 8;
    std::uint32_t heightIncrement = 2;
    std::vector<std::uint32_t> pixelFormats{PixelFormat::Mono8, PixelFormat::RGB8, PixelFormat::BayerBG8};
    PerFeature<FeatureRange> ranges = defaultRanges();
    double frameRate = 0.0; // free run, frames per second; 0 takes the rig's
    CameraCondition condition = CameraCondition::Normal;
    std::int64_t unplugAfterFrames = -1; // -1: never
    std::vector<FrameFault> frameFaults;
    FrameIds frameIds = FrameIds::Continue;
};

struct ProjectorConfig {
    double rate = 60.0;           // pulses (patterns) per second
    std::uint32_t grayBits = 7;
    std::uint32_t phaseSteps = 8;
    double phasePeriod = 0.0;     // sinusoid period in pixels; 0: width / 2^grayBits
    double pulseWidthMs = 1.0;
    // The serials of the cameras whose trigger lines it drives together; a camera not
    // listed has a projector of its own (sdk/sim/SimProjector.h). A serial no camera of
    // the rig has drives nothing (a rig file refuses it).
    std::vector<std::string> drives;
    // Pulses from the first acquisition start of a camera it drives on, instead of
    // starting once every camera with an open stream is acquiring.
    bool freeRunning = false;
};

enum class FaultWhen { Once, Always, OnCall };

struct OperationFault {
    Operation operation = Operation::sdkInitialize;
    Result code = 1;
    FaultWhen when = FaultWhen::Once;
    std::uint32_t call = 1;  // OnCall: the k-th call from when the fault was set (1 = next)
};

struct RigConfig {
    std::vector<CameraConfig> cameras;
    double frameRate = 30.0;
    ProjectorConfig projector;
    bool render = true;  // false: benchmark mode
    // False: the producer writes each frame's stamp alone, as a camera's DMA fills the
    // buffer: a triggered rig's timing without the cost of drawing the scene.
    bool drawScene = true;
    std::uint64_t seed = 1;
    std::vector<OperationFault> faults;
};

// Two cameras, serials "SIM0001" and "SIM0002", 1920 x 1200, Mono8, RGB8, BayerBG8,
// both driven by the one projector.
RigConfig defaultRig();
// Checks a rig against the ranges above; throws RuntimeException naming the camera
// and field at fault.
void validateRig(const RigConfig& rig);

// Bytes per pixel of a PFNC code the rig knows (1 or 3), 0 for any other. Inline: the
// stamp writer's fills stay short stores only while the compiler sees these values.
constexpr std::uint32_t bytesPerPixel(std::uint32_t pixelFormat) {
    switch (pixelFormat) {
    case PixelFormat::Mono8:
    case PixelFormat::BayerBG8: return 1;
    case PixelFormat::RGB8: return 3;
    default: return 0;
    }
}
// Entries of the projector's structured-light sequence: 2 + grayBits + phaseSteps.
std::uint32_t patternCount(const ProjectorConfig& projector);

// What a camera is set to when it takes a frame.
struct FrameSettings {
    std::uint32_t pixelFormat = PixelFormat::Mono8;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    PerFeature<double> features = initialValues(defaultRanges());

    std::uint64_t imageBytes() const {
        return static_cast<std::uint64_t>(width) * height * bytesPerPixel(pixelFormat);
    }
};

// What the rig counts per camera (SimSdk::stats).
struct CameraStats {
    std::uint64_t triggers = 0;   // frames started (numbered), whatever became of them
    std::uint64_t completed = 0;  // requests completed with an image
    std::uint64_t failed = 0;     // requests completed as failures (too large)
    std::uint64_t dropped = 0;    // frames dropped by a fault
    std::uint64_t missedPulses = 0; // projector pulses the camera missed by a fault
    std::uint64_t lost = 0;       // frames that found no waiting request
    std::uint64_t ignoredTriggers = 0; // software triggers while not acquiring
};

struct FrameStamp {
    std::uint32_t frame = 0;
    std::uint32_t pattern = kNoPattern;
};

}  // namespace Tavri::sim
