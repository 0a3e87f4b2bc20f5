#include "ImageOutput.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace TeliGrab {

namespace {
constexpr int kGap = 4;
const cv::Scalar kBackground(32, 32, 32);
const cv::Scalar kLabel(0, 255, 255);
const cv::Scalar kMark(0, 0, 255);  // BGR red

cv::Mat asBgr(const cv::Mat& image) {
    if (image.channels() == 3) return image;
    cv::Mat bgr;
    cv::cvtColor(image, bgr, cv::COLOR_GRAY2BGR);
    return bgr;
}
}  // namespace

cv::Mat forFile(const cv::Mat& image, Tavri::ImageType mode, bool debayer) {
    cv::Mat out;
    if (mode == Tavri::ImageType::Color && image.channels() == 3)
        cv::cvtColor(image, out, cv::COLOR_RGB2BGR);
    else if (mode == Tavri::ImageType::Raw && debayer && image.channels() == 1)
        cv::cvtColor(image, out, kBayerBG8ToBgr);
    else
        out = image;
    return out;
}

cv::Mat contactSheet(const std::vector<cv::Mat>& images, int thumbWidth, const std::vector<bool>& marked, int columns) {
    if (images.empty()) return {};
    const bool inRows = columns > 0;  // numbered within each row
    if (!inRows) columns = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(images.size()))));
    const int rows = (static_cast<int>(images.size()) + columns - 1) / columns;
    const cv::Size first = images.front().size();
    const int width = std::min(thumbWidth, first.width);
    const int height = std::max(1, static_cast<int>(std::lround(static_cast<double>(first.height) * width / first.width)));

    cv::Mat sheet(rows * (height + kGap) + kGap, columns * (width + kGap) + kGap, CV_8UC3, kBackground);
    for (std::size_t i = 0; i < images.size(); ++i) {
        const int column = static_cast<int>(i) % columns;
        const int row = static_cast<int>(i) / columns;
        cv::Mat cell = sheet(cv::Rect(kGap + column * (width + kGap), kGap + row * (height + kGap), width, height));
        cv::resize(asBgr(images[i]), cell, cell.size(), 0, 0, cv::INTER_AREA);
        const bool mark = i < marked.size() && marked[i];
        if (mark) cv::rectangle(cell, cv::Rect(0, 0, width, height), kMark, 3);
        cv::putText(cell, std::to_string(inRows ? static_cast<int>(i) % columns : static_cast<int>(i)), cv::Point(4, std::min(height - 4, 16)), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                    mark ? kMark : kLabel, 1, cv::LINE_AA);
    }
    return sheet;
}

}  // namespace TeliGrab
