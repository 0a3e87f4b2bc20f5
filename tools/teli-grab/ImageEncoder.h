#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace TeliGrab {

// Encodes `image` in the format of `extension` (".png", ".jpg", ".tif") into `bytes`;
// false when there is no encoder for it. The codec module is loaded on the first call
// (ToolError PluginNotLoaded naming it when it cannot be).
bool encodeImage(const char* extension, const cv::Mat& image, std::vector<unsigned char>& bytes,
                 const std::vector<int>& params = {});

}  // namespace TeliGrab
