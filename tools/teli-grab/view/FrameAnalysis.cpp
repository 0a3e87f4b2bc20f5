#include "view/FrameAnalysis.h"

#include <opencv2/imgcodecs.hpp>  // the JPEG quality key only; encoding goes through the module
#include <opencv2/imgproc.hpp>

#include "ImageEncoder.h"
#include "ImageOutput.h"

namespace TeliGrab::View {

namespace {

const cv::Scalar kSaturatedMark(0, 0, 255);

// Pixels with any channel at 255.
cv::Mat saturatedMask(const cv::Mat& frame) {
    cv::Mat mask;
    if (frame.channels() == 1) return frame == 255;
    std::vector<cv::Mat> planes;
    cv::split(frame, planes);
    mask = planes[0] == 255;
    for (std::size_t i = 1; i < planes.size(); ++i) mask |= planes[i] == 255;
    return mask;
}

}  // namespace

FrameAnalysis analyse(const cv::Mat& frame) {
    FrameAnalysis result;
    if (frame.empty()) return result;
    const cv::Mat samples = frame.isContinuous() ? frame : frame.clone();
    const auto* data = samples.ptr<unsigned char>();
    const std::size_t count = samples.total() * samples.channels();
    for (std::size_t i = 0; i < count; ++i) ++result.histogram[data[i]];
    const double saturated =
        frame.channels() == 1 ? result.histogram[255] : cv::countNonZero(saturatedMask(frame));
    result.saturatedShare = saturated / static_cast<double>(frame.total());
    return result;
}

cv::Mat previewOf(const cv::Mat& frame, Tavri::ImageType mode, bool markSaturated) {
    cv::Mat preview = forFile(frame, mode, true);
    if (!markSaturated) return preview;
    if (preview.channels() == 1) {
        cv::Mat bgr;
        cv::cvtColor(preview, bgr, cv::COLOR_GRAY2BGR);
        preview = bgr;
    } else if (preview.data == frame.data) {
        preview = preview.clone();  // never paint into the camera's frame
    }
    preview.setTo(kSaturatedMark, saturatedMask(frame));
    return preview;
}

std::vector<unsigned char> encodeJpeg(const cv::Mat& image, int quality) {
    std::vector<unsigned char> jpeg;
    encodeImage(".jpg", image, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    return jpeg;
}

}  // namespace TeliGrab::View
