#include "view/FrameView.h"

#include <boost/format.hpp>
#include <opencv2/imgproc.hpp>
#include <regex>

#include "view/FrameAnalysis.h"
#include "view/PageRequests.h"

namespace TeliGrab::View {

namespace {

constexpr int kMinSide = 16;
constexpr int kMaxSide = 16384;

int side(const std::string& digits, const std::string& what) {
    const int value = std::stoi(digits);
    if (value < kMinSide || value > kMaxSide)
        throw RequestError((boost::format("%s must be from %d to %d, got %s") % what % kMinSide % kMaxSide % digits)
                               .str());
    return value;
}

}  // namespace

ViewRequest parseViewRequest(const std::string& fit, const std::string& region) {
    ViewRequest request;
    if (!fit.empty() && !region.empty()) throw RequestError("give either fit or region, not both");
    std::smatch match;
    if (!fit.empty()) {
        if (!std::regex_match(fit, match, std::regex(R"((\d{1,5})x(\d{1,5}))")))
            throw RequestError("fit must be WIDTHxHEIGHT, got '" + fit + "'");
        request.fit = {side(match[1], "the fit width"), side(match[2], "the fit height")};
    }
    if (!region.empty()) {
        if (!std::regex_match(region, match, std::regex(R"((\d{1,5}),(\d{1,5}),(\d{1,5}),(\d{1,5}))")))
            throw RequestError("region must be X,Y,WIDTH,HEIGHT, got '" + region + "'");
        request.region = {std::stoi(match[1]), std::stoi(match[2]), side(match[3], "the region width"),
                          side(match[4], "the region height")};
    }
    return request;
}

cv::Mat renderView(const RawFrame& frame, const ViewRequest& request, bool markSaturated) {
    const cv::Mat& image = frame.image;
    if (!request.region.empty()) {
        cv::Rect region = request.region & cv::Rect(0, 0, image.cols, image.rows);
        if (frame.mode == Tavri::ImageType::Raw) {
            region.x &= ~1;
            region.y &= ~1;
            region.width &= ~1;
            region.height &= ~1;
        }
        if (region.width < 2 || region.height < 2) region = cv::Rect(0, 0, image.cols, image.rows);
        return previewOf(image(region), frame.mode, markSaturated);
    }
    cv::Mat preview = previewOf(image, frame.mode, markSaturated);
    if (request.fit.empty()) return preview;
    const double scale = std::min({1.0, static_cast<double>(request.fit.width) / image.cols,
                                   static_cast<double>(request.fit.height) / image.rows});
    if (scale >= 1.0) return preview;
    cv::Mat scaled;
    // Linear interpolation: half the cost of area averaging, which the frame rate needs;
    // the 1:1 zoom is there for fine detail.
    cv::resize(preview, scaled, cv::Size(), scale, scale, cv::INTER_LINEAR);
    return scaled;
}

}  // namespace TeliGrab::View
