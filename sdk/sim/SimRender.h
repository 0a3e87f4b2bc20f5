#pragma once
// Inside the rig: the synthetic scene, the projector's patterns, the stamp and the
// rendering of one frame in a pixel format. Pure functions of the configuration
// (sdk/sim/SimConfig.h) and their arguments.

#include <cstdint>
#include <memory>
#include <vector>

#include "sdk/sim/SimConfig.h"

namespace Tavri::sim {

// Reads the stamp of an image of the given size and format (false: too small or an
// unknown format).
bool readStamp(const std::uint8_t* image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelFormat,
               FrameStamp* stamp);
// The exact bytes camera `camera` (rig order) of `rig` delivers as frame `frame`
// showing pattern `pattern` (kNoPattern: flat white) with the given settings.
std::vector<std::uint8_t> renderFrame(const RigConfig& rig, std::size_t camera, const FrameSettings& settings,
                                      std::uint32_t frame, std::uint32_t pattern);

namespace detail {

// What a camera sees, at its full sensor size: per pixel the surface colour (RGB,
// 0..255) and the projector column offset (the disparity) of the surface point.
struct Scene {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> albedo;      // width * height * 3
    std::vector<std::int16_t> disparity;   // width * height, >= 0
    std::int32_t maxDisparity = 0;
    std::vector<std::int8_t> noise;        // 65536 values in -2..2
    std::uint64_t noiseKey = 0;
};

std::uint64_t mix(std::uint64_t value);

std::shared_ptr<const Scene> makeScene(const CameraConfig& camera, std::uint64_t seed, std::size_t cameraIndex);

// Illumination the projector throws on projector column u (in camera pixels, 0 ...
// width + maxDisparity), 0..1, for sequence entry `pattern` (kNoPattern: white).
std::vector<float> patternRow(const ProjectorConfig& projector, std::uint32_t sensorWidth, std::uint32_t columns,
                              std::uint32_t pattern);

// Renders the frame into `out` (settings.imageBytes()), stamp included.
void renderInto(const Scene& scene, const ProjectorConfig& projector, const FrameSettings& settings,
                std::uint32_t frame, std::uint32_t pattern, std::uint8_t* out);

// Writes only the stamp (benchmark mode).
void writeStamp(const FrameSettings& settings, std::uint32_t frame, std::uint32_t pattern, std::uint8_t* out);

}  // namespace detail
}  // namespace Tavri::sim
