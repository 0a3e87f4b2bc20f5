#include "ImageEncoder.h"

#include <filesystem>

#include "platform/PluginLibrary.h"

#include "PluginLocation.h"
#include "ToolError.h"

namespace TeliGrab {
namespace {

using EncodeFunction = bool (*)(const char*, const cv::Mat&, const std::vector<int>&, std::vector<unsigned char>&);

EncodeFunction loadEncoder() {
    using Tavri::platform::PluginLibrary;
    try {
        const auto executableDirectory = std::filesystem::path(PluginLibrary::defaultPath()).parent_path();
        // Kept loaded until the process ends: encoders run until the last image is written.
        static const PluginLibrary module(installedBesidePlugin(executableDirectory, "libtavri_teli_grab_codecs.so").string());
        return module.entryPoint<EncodeFunction>("tavriTeliGrabEncode");
    } catch (const Tavri::platform::PluginError& error) {
        throw ToolError(ExitCode::PluginNotLoaded, error.what());
    }
}

}  // namespace

bool encodeImage(const char* extension, const cv::Mat& image, std::vector<unsigned char>& bytes,
                 const std::vector<int>& params) {
    static const EncodeFunction encode = loadEncoder();
    return encode(extension, image, params, bytes);
}

}  // namespace TeliGrab
