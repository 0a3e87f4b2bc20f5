#include "CameraChecks.h"

#include <boost/format.hpp>

#include "settings/SettingsOld.h"
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

void throwIfDisconnected(Tavri::CameraDriver& camera, long frames) {
    if (!camera.isConnected())
        throw ToolError(ExitCode::CameraDisconnected,
                        (boost::format("camera disconnected after %d frames") % frames).str());
}

}  // namespace TeliGrab
