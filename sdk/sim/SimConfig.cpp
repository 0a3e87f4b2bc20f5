// The rig's defaults and the ranges every value must lie in.

#include "sdk/sim/SimConfig.h"

#include <cmath>
#include <set>

#include "TavriCommon/Exceptions.h"

namespace Tavri::sim {

std::uint32_t patternCount(const ProjectorConfig& projector) { return 2 + projector.grayBits + projector.phaseSteps; }

RigConfig defaultRig() {
    RigConfig rig;
    CameraConfig first;
    first.serial = "SIM0001";
    CameraConfig second;
    second.serial = "SIM0002";
    rig.cameras = {first, second};
    rig.projector.drives = {first.serial, second.serial};
    return rig;
}

namespace {

[[noreturn]] void fail(const std::string& text) { throw RuntimeException("Invalid simulated rig: " + text); }

bool rateInRange(double rate) { return rate >= kMinRate && rate <= kMaxRate; }

void checkRange(const FeatureRange& range, const std::string& where) {
    const auto bounded = [](double v) { return std::isfinite(v) && std::fabs(v) <= kMaxFeatureMagnitude; };
    if (!bounded(range.min) || !bounded(range.max) || !bounded(range.initial) || !std::isfinite(range.increment) ||
        range.increment < kMinIncrement || range.increment > kMaxFeatureMagnitude || range.min > range.max ||
        range.initial < range.min || range.initial > range.max)
        fail(where + ": needs min <= initial <= max within +-1e9 and an increment of 1e-6 ... 1e9");
}

void checkCamera(const CameraConfig& c, const std::string& where) {
    if (c.serial.empty() || c.serial.size() > 63) fail(where + ": serial must have 1 ... 63 characters");
    if (c.model.size() > 63 || c.vendor.size() > 63) fail(where + ": model and vendor have at most 63 characters");
    if (c.widthIncrement < 1 || c.heightIncrement < 1) fail(where + ": increments must be >= 1");
    if (c.width < kMinWidth || c.height < kMinHeight || c.width > kMaxSensorSide || c.height > kMaxSensorSide)
        fail(where + ": sensor must be 128 x 16 ... 16384 x 16384");
    if (c.width % c.widthIncrement || c.height % c.heightIncrement || kMinWidth % c.widthIncrement ||
        kMinHeight % c.heightIncrement)
        fail(where + ": sensor size and minimum size must be multiples of the increments");
    if (c.pixelFormats.empty()) fail(where + ": needs at least one pixel format");
    std::set<std::uint32_t> formats;
    for (auto f : c.pixelFormats) {
        if (bytesPerPixel(f) == 0) fail(where + ": unknown pixel format " + std::to_string(f));
        if (!formats.insert(f).second) fail(where + ": pixel format listed twice");
    }
    if (formats.count(PixelFormat::BayerBG8) && (c.widthIncrement % 2 || c.heightIncrement % 2))
        fail(where + ": BayerBG8 needs even increments");
    for (const auto& row : kFeatureRows) checkRange(c.ranges[row.feature], where + " " + row.rigKey);
    if (!(c.frameRate == 0.0 || rateInRange(c.frameRate))) fail(where + ": frameRate must be 0 or 0.01 ... 1000");
    if (c.unplugAfterFrames < -1 || c.unplugAfterFrames > 0xFFFFFFFFll)
        fail(where + ": unplugAfterFrames must be -1 or 0 ... 4294967295");
    for (const auto& f : c.frameFaults) {
        if (f.every < 1 || f.extraBytes < 1) fail(where + ": frame fault needs every and extraBytes >= 1");
        if (f.burst < 1 || f.burst > kMaxRequestsPerStream) fail(where + ": frame fault burst must be 1 ... 1024");
        if (f.delayMs > kMaxDelayMs) fail(where + ": frame fault delayMs must be 0 ... 60000");
    }
}

}  // namespace

void validateRig(const RigConfig& rig) {
    if (!rateInRange(rig.frameRate)) fail("frameRate must be 0.01 ... 1000");
    const auto& p = rig.projector;
    if (!rateInRange(p.rate)) fail("projector rate must be 0.01 ... 1000");
    if (p.grayBits < 1 || p.grayBits > 12) fail("projector grayBits must be 1 ... 12");
    if (p.phaseSteps > 64) fail("projector phaseSteps must be 0 ... 64");
    if (!(p.phasePeriod == 0.0 || (p.phasePeriod >= kMinPhasePeriod && p.phasePeriod <= kMaxPhasePeriod)))
        fail("projector phasePeriod must be 0 or 2 ... 65536");
    if (!(p.pulseWidthMs >= 0.0) || p.pulseWidthMs >= 1000.0 / p.rate)
        fail("projector pulseWidthMs must be >= 0 and shorter than the pulse period");
    if (rig.cameras.size() > kMaxCameras) fail("at most 256 cameras");
    std::set<std::string> serials;
    for (std::size_t i = 0; i < rig.cameras.size(); ++i) {
        const auto& c = rig.cameras[i];
        const std::string where = "camera " + std::to_string(i) + " (" + c.serial + ")";
        checkCamera(c, where);
        if (!serials.insert(c.serial).second) fail(where + ": serial used twice");
    }
    std::set<std::string> driven;
    for (const auto& serial : p.drives)
        if (!driven.insert(serial).second) fail("projector drives '" + serial + "' twice");
    for (const auto& f : rig.faults) {
        if (indexOf(f.operation) >= kOperationCount) fail("fault names no SDK operation");
        if (f.call < 1) fail("fault call must be >= 1");
    }
}

}  // namespace Tavri::sim
