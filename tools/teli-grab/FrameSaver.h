#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "TavriAPI/ImageType.h"

namespace TeliGrab {

// Every k-th frame of a stream as DIR/frame_000000.png ...: frames 0, k, 2k ... by their
// index among the frames that arrived. With k 0 it saves nothing and makes no folder.
class FrameSaver {
public:
    FrameSaver(std::string directory, int every, Tavri::ImageType mode, bool debayer);
    // Writes `frame` when `index` is due; a failed write is ToolError(OutputError).
    void offer(const cv::Mat& frame, long index);
    // ", 12 saved in DIR" for the stream's summary; empty when nothing was asked.
    std::string savedText() const;

private:
    std::string directory_;
    int every_;
    Tavri::ImageType mode_;
    bool debayer_;
    long saved_ = 0;
};

}  // namespace TeliGrab
