#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "TavriAPI/ImageType.h"

namespace TeliGrab {

// The camera's BayerBG8 mosaic (B G / G R) as OpenCV names it: OpenCV names Bayer
// codes after the second row, so BayerBG8 is its "RG" pattern.
constexpr int kBayerBG8ToBgr = cv::COLOR_BayerRG2BGR;

// An image as the driver delivers it, made ready for an image file: Color images arrive
// as RGB8 and are reordered to OpenCV's BGR; Raw mosaics are demosaiced when `debayer`
// is set and written as they are otherwise; Gray is written as it is.
cv::Mat forFile(const cv::Mat& image, Tavri::ImageType mode, bool debayer);

// All images as thumbnails in a grid, numbered, on a dark background: `columns` to a
// row, or a near-square grid for 0.
// The images are already prepared with forFile. Thumbnails are at most `thumbWidth`
// pixels wide and keep the images' aspect ratio. Images flagged in `marked` (a broken
// set's) get a red frame and a red number.
cv::Mat contactSheet(const std::vector<cv::Mat>& images, int thumbWidth = 240,
                     const std::vector<bool>& marked = {}, int columns = 0);

}  // namespace TeliGrab
