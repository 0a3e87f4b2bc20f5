// The only code of teli-grab that touches OpenCV's image codecs, built as a module of
// its own: Debian's codecs pull in some 140 libraries, and a command that writes no
// image should not pay for loading them. The tool loads it on the first encode.

#include <opencv2/imgcodecs.hpp>

#include <vector>

extern "C" __attribute__((visibility("default"))) bool tavriTeliGrabEncode(const char* extension,
                                                                            const cv::Mat& image,
                                                                            const std::vector<int>& params,
                                                                            std::vector<unsigned char>& bytes) {
    try {
        return cv::imencode(extension, image, bytes, params);
    } catch (const cv::Exception&) {
        // OpenCV's own text names its source lines; the caller says what failed.
        return false;
    }
}
