#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "ImageOutput.h"

namespace TeliGrab {
namespace {

using Tavri::ImageType;

// A BayerBG8 mosaic (rows B G B G / G R G R) of a scene in one colour.
cv::Mat bayerBG8Of(const cv::Vec3b& bgr, int rows = 8, int cols = 8) {
    cv::Mat mosaic(rows, cols, CV_8UC1);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            const bool evenRow = y % 2 == 0, evenCol = x % 2 == 0;
            mosaic.at<uchar>(y, x) = evenRow && evenCol ? bgr[0] : (!evenRow && !evenCol ? bgr[2] : bgr[1]);
        }
    return mosaic;
}

// Away from the border, where demosaicing has all its neighbours.
cv::Vec3b centre(const cv::Mat& image) { return image.at<cv::Vec3b>(image.rows / 2, image.cols / 2); }

TEST(ImageOutput, PngPixelsKeepTheSceneColour) {
    const cv::Vec3b red(0, 0, 255), blue(255, 0, 0);
    cv::Mat rgbRed(4, 4, CV_8UC3, cv::Scalar(255, 0, 0));  // RGB8 as the camera sends it
    struct Case {
        const char* name;
        cv::Mat image;
        ImageType mode;
        bool debayer;
        cv::Vec3b expected;
    } cases[] = {
        {"red mosaic, demosaiced", bayerBG8Of(red), ImageType::Raw, true, red},
        {"blue mosaic, demosaiced", bayerBG8Of(blue), ImageType::Raw, true, blue},
        {"RGB8 red, reordered for OpenCV", rgbRed, ImageType::Color, false, red},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const cv::Mat out = forFile(c.image, c.mode, c.debayer);
        ASSERT_EQ(out.type(), CV_8UC3);
        EXPECT_EQ(centre(out), c.expected);
    }
}

TEST(ImageOutput, ContactSheetPlacesImagesInReadingOrder) {
    // Ten 100 x 40 images, each one grey level: four columns, three rows.
    std::vector<cv::Mat> images;
    for (int i = 0; i < 10; ++i) images.emplace_back(40, 100, CV_8UC1, cv::Scalar(20 * i + 30));
    const cv::Mat sheet = contactSheet(images, 240);
    const int gap = 4;
    ASSERT_EQ(sheet.type(), CV_8UC3);
    ASSERT_EQ(sheet.size(), cv::Size(4 * (100 + gap) + gap, 3 * (40 + gap) + gap));
    for (int i = 0; i < 10; ++i) {
        // Bottom-right corner of each cell, clear of the number drawn top-left.
        const cv::Point corner(gap + (i % 4) * (100 + gap) + 95, gap + (i / 4) * (40 + gap) + 35);
        EXPECT_EQ(sheet.at<cv::Vec3b>(corner), cv::Vec3b::all(static_cast<uchar>(20 * i + 30))) << "image " << i;
    }
    EXPECT_TRUE(contactSheet({}).empty());
}

}  // namespace
}  // namespace TeliGrab
