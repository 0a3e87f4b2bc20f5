#include "FrameSaver.h"

#include <boost/format.hpp>
#include <filesystem>
#include <utility>

#include "ImageFile.h"
#include "ImageOutput.h"

namespace TeliGrab {

FrameSaver::FrameSaver(std::string directory, int every, Tavri::ImageType mode, bool debayer)
    : directory_(std::move(directory)), every_(every), mode_(mode), debayer_(debayer) {
    if (every_ > 0) createOutputDirectory(directory_);
}

void FrameSaver::offer(const cv::Mat& frame, long index) {
    if (every_ <= 0 || index % every_ != 0) return;
    const auto name = (boost::format("frame_%06d.png") % index).str();
    writeImage((std::filesystem::path(directory_) / name).string(), forFile(frame, mode_, debayer_));
    ++saved_;
}

std::string FrameSaver::savedText() const {
    return every_ > 0 ? (boost::format(", %d saved in %s") % saved_ % directory_).str() : "";
}

}  // namespace TeliGrab
