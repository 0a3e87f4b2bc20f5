// The renderer: deterministic frames, the Bayer mosaic, the projector's patterns, and
// what exposure, gain and black level do to an image.

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "RigFixture.h"
#include "sdk/sim/SimRender.h"

namespace Tavri::sim::test {
namespace {

FrameSettings settingsOf(std::uint32_t format, double exposure = 10000.0, double gain = 0.0, double black = 0.0) {
    return FrameSettings{format, 256, 64, exposure, gain, black};
}

TEST(RigRender, IsDeterministicForASeedAndDiffersAcrossSeedsCamerasAndPatterns) {
    const RigConfig rig = smallRig();
    RigConfig other = rig;
    other.seed = 2;
    const auto s = settingsOf(PixelFormat::RGB8);
    const auto frame = renderFrame(rig, 0, s, 4, 4);
    EXPECT_EQ(frame, renderFrame(rig, 0, s, 4, 4));
    EXPECT_NE(frame, renderFrame(other, 0, s, 4, 4));
    EXPECT_NE(frame, renderFrame(rig, 1, s, 4, 4)) << "each camera sees its own scene";
    EXPECT_NE(frame, renderFrame(rig, 0, s, 4, 5));
}

TEST(RigRender, BayerBG8IsTheMosaicOfTheColourFrame) {
    const RigConfig rig = smallRig();
    const auto rgb = renderFrame(rig, 0, settingsOf(PixelFormat::RGB8), 2, 9);
    const auto bayer = renderFrame(rig, 0, settingsOf(PixelFormat::BayerBG8), 2, 9);
    const int channelAt[2][2] = {{2, 1}, {1, 0}};  // B G / G R
    for (std::uint32_t y = 2 * kStampCell; y < 64; ++y)
        for (std::uint32_t x = 0; x < 256; ++x)
            ASSERT_EQ(bayer[y * 256 + x], rgb[(y * 256 + x) * 3 + channelAt[y & 1][x & 1]]) << x << "," << y;
}

TEST(RigRender, PatternsAreWhiteBlackGrayCodeThenPhaseShifts) {
    ProjectorConfig projector;
    projector.grayBits = 3;
    projector.phaseSteps = 4;
    ASSERT_EQ(patternCount(projector), 9u);
    const auto row = [&](std::uint32_t pattern) { return detail::patternRow(projector, 256, 256, pattern); };
    EXPECT_EQ(row(0)[100], 1.0f);
    EXPECT_EQ(row(1)[100], 0.0f);
    // Gray code of stripe s = s ^ (s >> 1); three bits over 8 stripes of 32 columns.
    for (std::uint32_t stripe = 0; stripe < 8; ++stripe) {
        const std::uint32_t gray = stripe ^ (stripe >> 1);
        for (std::uint32_t bit = 0; bit < 3; ++bit)
            EXPECT_EQ(row(2 + bit)[stripe * 32 + 16], ((gray >> (2 - bit)) & 1) ? 1.0f : 0.0f);
    }
    // Phase steps shift a sinusoid of period 256 / 8 = 32 by a quarter period each.
    EXPECT_NEAR(row(5)[0], 1.0f, 1e-6);
    EXPECT_NEAR(row(6)[8], 1.0f, 1e-6);
    EXPECT_EQ(row(9 + 2), row(2)) << "the sequence repeats";
}

TEST(RigRender, ExposureGainAndBlackLevelBrightenTheImage) {
    const auto mean = [](double exposure, double gain, double black) {
        const auto image = renderFrame(smallRig(), 0, settingsOf(PixelFormat::Mono8, exposure, gain, black), 1, kNoPattern);
        return std::accumulate(image.begin(), image.end(), 0.0) / image.size();
    };
    const double base = mean(5000.0, 0.0, 0.0);
    EXPECT_GT(mean(10000.0, 0.0, 0.0), base * 1.5);
    EXPECT_GT(mean(5000.0, 6.0, 0.0), base * 1.5);
    EXPECT_GT(mean(5000.0, 0.0, 20.0), base + 10.0);
}

}  // namespace
}  // namespace Tavri::sim::test
