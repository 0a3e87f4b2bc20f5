#include "sdk/sim/SimDevice.h"

#include <algorithm>
#include <cmath>

#include "sdk/sim/SimResult.h"
#include "sdk/sim/SimFrameSource.h"

namespace Tavri::sim {

using namespace SimResult;

Device::Device(std::size_t index, const CameraConfig& config, const RigConfig& rig, std::shared_ptr<Projector> line,
               std::atomic<std::uint64_t>& presence, std::atomic<std::size_t>& threads)
    : index(index), config(config), projector(rig.projector), render(rig.render), drawScene(rig.drawScene), seed(rig.seed),
      framePeriod(1.0 / (config.frameRate > 0.0 ? config.frameRate : rig.frameRate)),
      pulsePeriod(1.0 / rig.projector.rate), pulseWidth(rig.projector.pulseWidthMs / 1000.0), line(std::move(line)),
      frames(makeFrameSource(rig.render, threads)), frameFaults(config.frameFaults),
      unplugAfter(config.unplugAfterFrames), width(config.width), height(config.height),
      pixelFormat(config.pixelFormats.front()), features(initialValues(config.ranges)), condition_(config.condition),
      plugged_(config.condition != CameraCondition::Unplugged), presence_(presence) {}

Device::~Device() = default;

void Device::setCondition(CameraCondition condition) {
    condition_ = condition;
    const bool plugged = condition != CameraCondition::Unplugged;
    if (plugged_.exchange(plugged) != plugged) presence_.fetch_add(1, std::memory_order_acq_rel);
    if (stream) frames->rescheduled();
}

const detail::Scene& Device::scene() {
    std::call_once(sceneOnce_, [this] { scene_ = detail::makeScene(config, seed, index); });
    return *scene_;
}

FrameSettings Device::settings() const {
    FrameSettings s;
    s.pixelFormat = pixelFormat;
    s.width = width;
    s.height = height;
    s.features = features;
    return s;
}

std::uint32_t Device::payloadSize() const {
    std::uint32_t largest = 0;
    for (auto format : config.pixelFormats)
        largest = std::max(largest, config.width * config.height * bytesPerPixel(format));
    return largest;
}

void Device::countTowardsUnplug() {
    if (unplugAfter < 0) return;
    if (unplugAfter > 0) --unplugAfter;
    if (unplugAfter == 0) {
        setCondition(CameraCondition::Unplugged);
        unplugAfter = -1;
    }
}

Result conditionCheck(const Device& d, Access access) {
    if (access == Access::HostSide) return Success;
    if (d.condition() == CameraCondition::Unplugged) return CameraUnplugged;
    if (d.condition() != CameraCondition::Normal) return NotResponding;
    return Success;
}

Result storeFeature(const FeatureRange& range, double value, double& stored) {
    if (!std::isfinite(value)) return ValueNotFinite;
    const double tolerance = range.increment * 1e-6;
    if (value < range.min - tolerance || value > range.max + tolerance) return ValueOutOfRange;
    double result = range.min + std::round((value - range.min) / range.increment) * range.increment;
    if (result > range.max) result -= range.increment;  // a max off the grid
    stored = std::max(result, range.min);
    return Success;
}

Result checkSize(std::uint32_t value, std::uint32_t minimum, std::uint32_t maximum, std::uint32_t increment) {
    if (value < minimum || value > maximum) return ValueOutOfRange;
    if (value % increment) return ValueNotOnIncrement;
    return Success;
}

}  // namespace Tavri::sim
