#include "CameraChecks.h"

#include <boost/format.hpp>

#include "settings/SettingsOld.h"
#include "DriverLogTap.h"
#include "ToolError.h"

namespace TeliGrab {

std::string triggerHint(Tavri::CameraDriver& camera) {
    const auto settings = camera.settings();
    if (!settings.has(SettingsOld::Camera::TriggerType) ||
        settings[SettingsOld::Camera::TriggerType].toString() != SettingsOld::Camera::TriggerTypeValues::Hardware)
        return {};
    return "the camera waits for a hardware trigger (Camera/TriggerType is Hardware); without trigger wiring, "
           "let it run free with --set Camera/TriggerType=Software";
}

std::string noCameraText(Tavri::CameraDriver& camera) {
    DriverLogTap tap(0);
    if (camera.isConnected() || !tap.saw(Tavri::DriverText::CameraInfoFailed)) return "no camera found";
    return "no camera found that answers: a camera is attached but does not say who it is (hung? power it off and on)";
}

void throwIfDisconnected(Tavri::CameraDriver& camera, long frames) {
    if (!camera.isConnected())
        throw ToolError(ExitCode::CameraDisconnected,
                        (boost::format("camera disconnected after %d frames") % frames).str());
}

std::string wrongSizeText(const Tavri::ImageRecord& record, Tavri::ImageType mode, const cv::Mat& image) {
    if (record.status != Tavri::ImageRecord::kWrongSize) return {};
    const char* word = mode == Tavri::ImageType::Color ? "color (RGB8)"
                       : mode == Tavri::ImageType::Gray ? "gray (Mono8)"
                                                        : "raw (BayerBG8)";
    return (boost::format("the camera did not take colour mode %s: image %d has %d bytes where the mode needs %d") %
            word % record.index % record.bytes % (image.total() * image.elemSize()))
        .str();
}

void refuseWrongSize(const Tavri::ImageRecord& record, Tavri::ImageType mode, const cv::Mat& image) {
    const auto text = wrongSizeText(record, mode, image);
    if (!text.empty()) throw ToolError(ExitCode::DriverError, text);
}

}  // namespace TeliGrab
