#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "view/FrameHub.h"

namespace TeliGrab::View {

// The part of the image a viewer shows: all of it scaled down to fit a window, or a
// region at full resolution (the page's 1:1 zoom).
struct ViewRequest {
    cv::Size fit;     // empty: no scaling
    cv::Rect region;  // empty: the whole image
};

// From the stream's query: `fit` "WIDTHxHEIGHT" and `region` "X,Y,WIDTH,HEIGHT", each
// optional, not both; sizes from 16 to 16384. RequestError otherwise.
ViewRequest parseViewRequest(const std::string& fit, const std::string& region);

// The JPEG-ready picture of `frame` for `request` (see previewOf). A region is clipped
// to the image and, for a Bayer mosaic, kept on even pixels so its colours stay right;
// a fit keeps the aspect ratio and never enlarges.
cv::Mat renderView(const RawFrame& frame, const ViewRequest& request, bool markSaturated);

}  // namespace TeliGrab::View
