#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace TeliGrab {

// The file formats the tool writes, chosen by the file name's extension.
enum class ImageFormat { Png, Jpeg, Tiff };

// .png, .jpg/.jpeg, .tif/.tiff in any case; ToolError(Usage) for anything else.
ImageFormat formatOf(const std::string& fileName);
// "png", "jpeg" or "tiff" as a word the user typed for --format; ToolError(Usage) else.
ImageFormat formatNamed(const std::string& word);
const char* extensionOf(ImageFormat format);

// Checked before the camera opens, so a capture is never lost to a bad path:
// the file's folder exists and is writable, and the name is not a folder.
void checkOutputFile(const std::string& fileName);
// Checked before the camera opens: the folder is writable, or the nearest existing
// folder above it is, so that it can be made. Nothing is created yet.
void checkOutputDirectory(const std::string& directory);
// Creates the folder (and its parents) when the images are there to be written.
void createOutputDirectory(const std::string& directory);

// Encodes in the format of the extension and writes through a temporary file beside
// the target, renamed into place: an interrupted or failed write leaves no partial
// file. ToolError(OutputError) with the system's reason.
void writeImage(const std::string& fileName, const cv::Mat& image);
// Writes `bytes` the same way.
void writeFile(const std::string& fileName, const std::vector<uchar>& bytes);

}  // namespace TeliGrab
