// The histogram, the saturated share, the marking of saturated pixels per colour mode,
// and the view a stream sends.
#include <gtest/gtest.h>

#include "view/FrameAnalysis.h"
#include "view/FrameView.h"
#include "view/PageRequests.h"

namespace TeliGrab::View {
namespace {

TEST(FrameAnalysis, HistogramAndSaturatedShare) {
    cv::Mat gray(4, 5, CV_8UC1, cv::Scalar(10));
    gray.at<unsigned char>(0, 0) = 255;
    gray.at<unsigned char>(3, 4) = 255;
    const auto grayResult = analyse(gray);
    EXPECT_EQ(grayResult.histogram[10], 18u);
    EXPECT_EQ(grayResult.histogram[255], 2u);
    EXPECT_DOUBLE_EQ(grayResult.saturatedShare, 2.0 / 20.0);

    // Colour: a pixel counts once, whichever channel is at 255.
    cv::Mat color(2, 2, CV_8UC3, cv::Scalar(1, 2, 3));
    color.at<cv::Vec3b>(0, 0) = {255, 0, 0};
    color.at<cv::Vec3b>(1, 1) = {255, 255, 255};
    const auto colorResult = analyse(color);
    EXPECT_EQ(colorResult.histogram[255], 4u);
    EXPECT_DOUBLE_EQ(colorResult.saturatedShare, 2.0 / 4.0);

    // A view into a larger image: only its own pixels count.
    cv::Mat wide(4, 8, CV_8UC1, cv::Scalar(255));
    wide(cv::Rect(0, 0, 4, 4)).setTo(7);
    const auto roi = analyse(wide(cv::Rect(0, 0, 4, 4)));
    EXPECT_EQ(roi.histogram[7], 16u);
    EXPECT_EQ(roi.saturatedShare, 0.0);
}

TEST(FrameAnalysis, PreviewMarksSaturatedPixelsWithoutTouchingTheFrame) {
    const cv::Vec3b red(0, 0, 255);
    const struct {
        Tavri::ImageType mode;
        int type;
    } cases[] = {{Tavri::ImageType::Gray, CV_8UC1}, {Tavri::ImageType::Color, CV_8UC3}, {Tavri::ImageType::Raw, CV_8UC1}};
    for (const auto& c : cases) {
        cv::Mat frame(8, 8, c.type, cv::Scalar::all(100));
        frame(cv::Rect(2, 2, 2, 2)).setTo(cv::Scalar::all(255));
        const cv::Mat original = frame.clone();

        const cv::Mat plain = previewOf(frame, c.mode, false);
        EXPECT_EQ(plain.size(), frame.size());
        const cv::Mat marked = previewOf(frame, c.mode, true);
        ASSERT_EQ(marked.type(), CV_8UC3);
        EXPECT_EQ(marked.at<cv::Vec3b>(2, 2), red) << static_cast<int>(c.mode);
        EXPECT_NE(marked.at<cv::Vec3b>(6, 6), red) << static_cast<int>(c.mode);
        EXPECT_EQ(cv::norm(frame, original, cv::NORM_INF), 0.0) << "the camera's frame was painted";
    }
    const auto jpeg = encodeJpeg(cv::Mat(16, 16, CV_8UC1, cv::Scalar(40)), 80);
    ASSERT_GT(jpeg.size(), 4u);
    EXPECT_EQ(jpeg[0], 0xFF);
    EXPECT_EQ(jpeg[1], 0xD8);
}

}  // namespace
}  // namespace TeliGrab::View

namespace TeliGrab::View {
namespace {

TEST(FrameView, FitAndRegionGiveTheViewAsked) {
    const RawFrame gray{cv::Mat(1200, 1920, CV_8UC1, cv::Scalar(9)), Tavri::ImageType::Gray, 1};
    const RawFrame raw{cv::Mat(1200, 1920, CV_8UC1, cv::Scalar(9)), Tavri::ImageType::Raw, 1};
    const struct {
        const RawFrame& frame;
        const char* fit;
        const char* region;
        cv::Size expected;
    } cases[] = {
        {gray, "", "", {1920, 1200}},
        {gray, "960x960", "", {960, 600}},         // the aspect ratio is kept
        {gray, "4000x4000", "", {1920, 1200}},     // never enlarged
        {gray, "", "100,50,640,480", {640, 480}},  // 1:1
        {gray, "", "1800,1100,640,480", {120, 100}},  // clipped to the image
        {raw, "", "101,51,641,481", {640, 480}},   // a mosaic keeps its even grid
        {gray, "", "5000,5000,64,64", {1920, 1200}},  // outside the image: all of it
    };
    for (const auto& c : cases) {
        const cv::Mat view = renderView(c.frame, parseViewRequest(c.fit, c.region), false);
        EXPECT_EQ(view.size(), c.expected) << c.fit << c.region;
    }
    for (const auto& [fit, region] : std::initializer_list<std::pair<const char*, const char*>>{
             {"640", ""}, {"8x8", ""}, {"640x480x2", ""}, {"", "1,2,3"}, {"", "0,0,15,100"}, {"640x480", "0,0,64,64"},
             {"", "-1,0,64,64"}, {"99999x100", ""}})
        EXPECT_THROW(parseViewRequest(fit, region), RequestError) << fit << " " << region;
}

}  // namespace
}  // namespace TeliGrab::View
