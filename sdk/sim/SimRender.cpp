#include "sdk/sim/SimRender.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Tavri::sim {

bool readStamp(const std::uint8_t* image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelFormat,
               FrameStamp* stamp) {
    const std::uint32_t bpp = bytesPerPixel(pixelFormat);
    if (!image || !stamp || bpp == 0 || width < kMinWidth || height < kMinHeight) return false;
    std::uint32_t fields[2] = {0, 0};
    for (std::uint32_t row = 0; row < 2; ++row) {
        const std::uint32_t y = row * kStampCell + kStampCell / 2;
        for (std::uint32_t bit = 0; bit < kStampBits; ++bit) {
            const std::uint32_t x = bit * kStampCell + kStampCell / 2;
            const bool set = image[(static_cast<std::size_t>(y) * width + x) * bpp] >= 128;
            fields[row] = (fields[row] << 1) | (set ? 1u : 0u);
        }
    }
    stamp->frame = fields[0];
    stamp->pattern = fields[1];
    return true;
}

std::vector<std::uint8_t> renderFrame(const RigConfig& rig, std::size_t camera, const FrameSettings& settings,
                                      std::uint32_t frame, std::uint32_t pattern) {
    const auto& config = rig.cameras.at(camera);
    const auto scene = detail::makeScene(config, rig.seed, camera);
    std::vector<std::uint8_t> out(static_cast<std::size_t>(settings.width) * settings.height *
                                  bytesPerPixel(settings.pixelFormat));
    if (!out.empty()) detail::renderInto(*scene, rig.projector, settings, frame, pattern, out.data());
    return out;
}

namespace detail {

std::uint64_t mix(std::uint64_t value) {  // splitmix64
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr float kAmbient = 0.15f;           // light that is not the projector's
constexpr double kReferenceExposure = 10000.0;
constexpr float kSensitivity[3] = {0.55f, 1.0f, 0.75f};  // raw R, G, B response

// A uniform number in [0, 1) drawn from a stream of the seed.
struct Draw {
    std::uint64_t state;
    double next() { return static_cast<double>(mix(state++) >> 11) * (1.0 / 9007199254740992.0); }
};

std::uint8_t toByte(double value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0.0, 1.0) * 255.0 + 0.5);
}

}  // namespace

std::shared_ptr<const Scene> makeScene(const CameraConfig& camera, std::uint64_t seed, std::size_t cameraIndex) {
    auto scene = std::make_shared<Scene>();
    const std::uint32_t w = camera.width, h = camera.height;
    scene->width = w;
    scene->height = h;
    scene->albedo.resize(static_cast<std::size_t>(w) * h * 3);
    scene->disparity.resize(static_cast<std::size_t>(w) * h);
    Draw draw{mix(seed) ^ mix(cameraIndex + 0x51u)};

    // The plane: tilted away from the camera (disparity grows downwards), with a soft
    // texture of three seeded waves and a faint grid.
    const double planeNear = 8.0 + 8.0 * draw.next(), planeTilt = 10.0 + 10.0 * draw.next();
    double waveFx[3], waveFy[3], wavePhase[3];
    for (int i = 0; i < 3; ++i) {
        waveFx[i] = (1.0 + 4.0 * draw.next()) * 2.0 * kPi / w;
        waveFy[i] = (1.0 + 4.0 * draw.next()) * 2.0 * kPi / h;
        wavePhase[i] = 2.0 * kPi * draw.next();
    }
    // The object: a sphere near the middle, reddish.
    const double cx = w * (0.45 + 0.1 * draw.next()), cy = h * (0.45 + 0.1 * draw.next());
    const double radius = std::min(w, h) * (0.25 + 0.05 * draw.next());
    const double bulge = std::max(4.0, radius * 0.12);
    const double gridStep = std::max(16.0, std::min(w, h) / 12.0);

    // The waves are separable: sin(a + b) = sin a cos b + cos a sin b.
    std::vector<double> sinX[3], cosX[3];
    for (int k = 0; k < 3; ++k) {
        sinX[k].resize(w);
        cosX[k].resize(w);
        for (std::uint32_t x = 0; x < w; ++x) {
            sinX[k][x] = std::sin(waveFx[k] * x) / 3.0;
            cosX[k][x] = std::cos(waveFx[k] * x) / 3.0;
        }
    }
    const auto step = static_cast<std::uint32_t>(gridStep);
    std::int32_t maxDisparity = 0;
    for (std::uint32_t y = 0; y < h; ++y) {
        double sinY[3], cosY[3];
        for (int k = 0; k < 3; ++k) {
            sinY[k] = std::sin(waveFy[k] * y + wavePhase[k]);
            cosY[k] = std::cos(waveFy[k] * y + wavePhase[k]);
        }
        const double planeDisparity = planeNear + planeTilt * y / h;
        const bool lineRow = y % step < 2;
        const double dy = (y - cy) / radius;
        for (std::uint32_t x = 0; x < w; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * w + x;
            double disparity = planeDisparity;
            double r, g, b;
            const double dx = (x - cx) / radius, rho2 = dx * dx + dy * dy;
            if (rho2 < 1.0) {
                const double z = std::sqrt(1.0 - rho2);
                disparity += bulge * z;
                const double shade = 0.55 + 0.45 * z;
                r = 0.85 * shade;
                g = 0.42 * shade;
                b = 0.30 * shade;
            } else {
                double texture = 0.0;
                for (int k = 0; k < 3; ++k) texture += sinX[k][x] * cosY[k] + cosX[k][x] * sinY[k];
                const bool line = lineRow || x % step < 2;
                const double level = (0.78 + 0.17 * texture) * (line ? 0.8 : 1.0);
                r = 0.70 * level;
                g = 0.68 * level;
                b = 0.60 * level;
            }
            scene->albedo[i * 3 + 0] = toByte(r);
            scene->albedo[i * 3 + 1] = toByte(g);
            scene->albedo[i * 3 + 2] = toByte(b);
            const auto d = static_cast<std::int16_t>(disparity + 0.5);
            scene->disparity[i] = d;
            maxDisparity = std::max<std::int32_t>(maxDisparity, d);
        }
    }
    scene->maxDisparity = maxDisparity;
    scene->noise.resize(65536);
    for (auto& n : scene->noise) n = static_cast<std::int8_t>(static_cast<int>(draw.next() * 5.0) - 2);
    scene->noiseKey = mix(seed ^ 0xC0FFEEull) ^ cameraIndex;
    return scene;
}

std::vector<float> patternRow(const ProjectorConfig& projector, std::uint32_t sensorWidth, std::uint32_t columns,
                              std::uint32_t pattern) {
    std::vector<float> row(columns, 1.0f);
    if (pattern == kNoPattern) return row;
    const std::uint32_t entry = pattern % patternCount(projector);
    const std::uint32_t bits = projector.grayBits;
    const double stripes = std::ldexp(1.0, static_cast<int>(bits));
    if (entry == 0) return row;
    if (entry == 1) {
        std::fill(row.begin(), row.end(), 0.0f);
        return row;
    }
    if (entry < 2 + bits) {
        const std::uint32_t bit = bits - 1 - (entry - 2);  // most significant first
        for (std::uint32_t u = 0; u < columns; ++u) {
            const auto stripe = static_cast<std::uint32_t>(
                std::min(stripes - 1.0, std::floor(static_cast<double>(u) * stripes / sensorWidth)));
            const std::uint32_t gray = stripe ^ (stripe >> 1);
            row[u] = ((gray >> bit) & 1u) ? 1.0f : 0.0f;
        }
        return row;
    }
    const std::uint32_t step = entry - 2 - bits;
    const double period = projector.phasePeriod > 0.0 ? projector.phasePeriod : sensorWidth / stripes;
    for (std::uint32_t u = 0; u < columns; ++u)
        row[u] = static_cast<float>(0.5 + 0.5 * std::cos(2.0 * kPi * u / period -
                                                       2.0 * kPi * step / projector.phaseSteps));
    return row;
}

void writeStamp(const FrameSettings& settings, std::uint32_t frame, std::uint32_t pattern, std::uint8_t* out) {
    const std::uint32_t bpp = bytesPerPixel(settings.pixelFormat);
    if (bpp == 0 || settings.width < kMinWidth || settings.height < kMinHeight) return;
    const std::uint32_t fields[2] = {frame & 0xFFFFu, pattern & 0xFFFFu};
    for (std::uint32_t y = 0; y < 2 * kStampCell; ++y) {
        const std::uint32_t value = fields[y / kStampCell];
        std::uint8_t* line = out + static_cast<std::size_t>(y) * settings.width * bpp;
        for (std::uint32_t bit = 0; bit < kStampBits; ++bit) {
            const bool set = (value >> (kStampBits - 1 - bit)) & 1u;
            std::memset(line + static_cast<std::size_t>(bit) * kStampCell * bpp, set ? 255 : 0, kStampCell * bpp);
        }
    }
}

void renderInto(const Scene& scene, const ProjectorConfig& projector, const FrameSettings& settings,
                std::uint32_t frame, std::uint32_t pattern, std::uint8_t* out) {
    const std::uint32_t w = std::min(settings.width, scene.width), h = std::min(settings.height, scene.height);
    const std::uint32_t stride = settings.width;
    const std::uint32_t columns = scene.width + static_cast<std::uint32_t>(scene.maxDisparity) + 1;
    const std::vector<float> light = patternRow(projector, scene.width, columns, pattern);
    std::vector<float> illumination(columns);
    for (std::uint32_t u = 0; u < columns; ++u) illumination[u] = kAmbient + (1.0f - kAmbient) * light[u];

    const double level = 255.0 * settings.features[Feature::Exposure] / kReferenceExposure *
                         std::pow(10.0, settings.features[Feature::Gain] / 20.0) / 255.0;
    const float balance[3] = {static_cast<float>(settings.features[Feature::RedRatio]), 1.0f,
                              static_cast<float>(settings.features[Feature::BlueRatio])};
    float gainOf[3];
    for (int c = 0; c < 3; ++c) gainOf[c] = static_cast<float>(level) * kSensitivity[c] * balance[c];
    const float black = static_cast<float>(settings.features[Feature::BlackLevel]) + 0.5f;  // + 0.5: round on truncation
    const auto clampByte = [](float v) -> std::uint8_t {
        return !(v > 0.0f) ? 0 : v >= 255.0f ? 255 : static_cast<std::uint8_t>(v);  // NaN: 0
    };
    const std::int8_t* noise = scene.noise.data();

    for (std::uint32_t y = 0; y < h; ++y) {
        const std::uint8_t* albedo = scene.albedo.data() + static_cast<std::size_t>(y) * scene.width * 3;
        const std::int16_t* disparity = scene.disparity.data() + static_cast<std::size_t>(y) * scene.width;
        const std::uint32_t noiseBase =
            static_cast<std::uint32_t>(mix(scene.noiseKey ^ (static_cast<std::uint64_t>(frame) << 32) ^ y));
        switch (settings.pixelFormat) {
        case PixelFormat::RGB8: {
            std::uint8_t* line = out + static_cast<std::size_t>(y) * stride * 3;
            for (std::uint32_t x = 0; x < w; ++x) {
                const float lit = illumination[x + disparity[x]];
                for (int c = 0; c < 3; ++c)
                    line[x * 3 + c] = clampByte(albedo[x * 3 + c] * lit * gainOf[c] + black +
                                                noise[(noiseBase + x * 3 + c) & 0xFFFFu]);
            }
            break;
        }
        case PixelFormat::Mono8: {
            const float weight[3] = {0.299f * gainOf[0], 0.587f * gainOf[1], 0.114f * gainOf[2]};
            std::uint8_t* line = out + static_cast<std::size_t>(y) * stride;
            for (std::uint32_t x = 0; x < w; ++x) {
                const float lit = illumination[x + disparity[x]];
                const float luminance =
                    albedo[x * 3] * weight[0] + albedo[x * 3 + 1] * weight[1] + albedo[x * 3 + 2] * weight[2];
                line[x] = clampByte(luminance * lit + black + noise[(noiseBase + x) & 0xFFFFu]);
            }
            break;
        }
        case PixelFormat::BayerBG8: {
            // B G / G R: even rows B G B G, odd rows G R G R; each value is exactly the
            // RGB8 frame's value of that channel.
            std::uint8_t* line = out + static_cast<std::size_t>(y) * stride;
            const int evenChannel = (y & 1u) ? 1 : 2, oddChannel = (y & 1u) ? 0 : 1;
            for (std::uint32_t x = 0; x < w; ++x) {
                const int c = (x & 1u) ? oddChannel : evenChannel;
                const float lit = illumination[x + disparity[x]];
                line[x] = clampByte(albedo[x * 3 + c] * lit * gainOf[c] + black + noise[(noiseBase + x * 3 + c) & 0xFFFFu]);
            }
            break;
        }
        default: return;
        }
    }
    writeStamp(settings, frame, pattern, out);
}

}  // namespace detail
}  // namespace Tavri::sim
