#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "TavriAPI/ImageType.h"

namespace TeliGrab::View {

// The histogram of every 8-bit sample of a frame (all channels pooled), and the share
// of pixels with at least one channel at 255.
struct FrameAnalysis {
    std::array<std::uint32_t, 256> histogram{};
    double saturatedShare = 0.0;
};

FrameAnalysis analyse(const cv::Mat& frame);

// The frame as the page shows it: Gray as it is, Color (RGB8) reordered to BGR, Raw
// (BayerBG8) demosaiced. With `markSaturated`, pixels with a channel at 255 are red.
cv::Mat previewOf(const cv::Mat& frame, Tavri::ImageType mode, bool markSaturated);

std::vector<unsigned char> encodeJpeg(const cv::Mat& image, int quality);

}  // namespace TeliGrab::View
