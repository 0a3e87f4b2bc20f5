#pragma once

#include <boost/shared_array.hpp>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "TavriAPI/ImageSetMemory.h"
#include "TavriAPI/ImageType.h"

namespace Tavri {

// The images of one grab sequence: count headers over one uncleared pixel block that
// copies of the set share. The block is warm, from the process's set memory
// (ImageSetMemory.h), and goes back there when the last copy lets go.
struct ImageSet {
    std::vector<cv::Mat> images;
    boost::shared_array<std::uint8_t> buffer;
    ImageType mode;
    std::int32_t bytesPerImage;

    // Width before height.
    ImageSet(int count, int cols, int rows, ImageType mode) : images(), buffer(), mode(mode) {
        const bool color = mode == ImageType::Color;
        bytesPerImage = cols * rows * (color ? 3 : 1);
        buffer = imageSetBlock(static_cast<std::size_t>(count) * static_cast<std::size_t>(bytesPerImage));
        images.clear();
        images.reserve(static_cast<std::size_t>(count > 0 ? count : 0));
        for (int i = 0; i < count; ++i) {
            std::uint8_t* data = buffer.get() + static_cast<std::size_t>(i) * static_cast<std::size_t>(bytesPerImage);
            if (color)
                images.emplace_back(rows, cols, CV_8UC3, data, static_cast<std::size_t>(cols) * 3);
            else
                images.emplace_back(rows, cols, CV_8UC1, data);
        }
    }
};

}  // namespace Tavri
