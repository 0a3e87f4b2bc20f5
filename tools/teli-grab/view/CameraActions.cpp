#include "view/CameraActions.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>
#include <nlohmann/json.hpp>

#include "CameraChecks.h"
#include "DriverLogTap.h"
#include "SetReport.h"
#include "ImageEncoder.h"
#include "ImageOutput.h"
#include "settings/SettingsOld.h"
#include "view/FrameAnalysis.h"

namespace TeliGrab::View {

namespace {

constexpr int kSheetQuality = 90;

nlohmann::json settingsJson(Tavri::CameraDriver& camera) { return nlohmann::json::parse(camera.settings().toJson()); }

Reply jsonReply(const nlohmann::json& body, int status = 200) { return {status, "application/json", body.dump(), ""}; }

}  // namespace

Reply errorReply(int status, const std::string& text) { return jsonReply({{"error", text}}, status); }

Reply currentSettings(Tavri::CameraDriver& camera) {
    try {
        return jsonReply({{"settings", settingsJson(camera)}});
    } catch (const std::exception& error) {
        return errorReply(500, std::string("settings: ") + error.what());
    }
}

Reply applyChange(Tavri::CameraDriver& camera, const SettingsChange& change) {
    std::vector<std::string> refusals;
    {
        DriverLogTap tap;
        try {
            if (change.hasTreeKeys && !camera.updateSettings(change.tree))
                refusals.push_back("updateSettings refused the settings: camera not initialised");
            if (change.mode) camera.setMode(*change.mode);
        } catch (const std::exception& error) {
            refusals.push_back(error.what());
        }
        for (const auto& text : tap.failures()) refusals.push_back(text);
    }
    try {
        return jsonReply({{"ok", refusals.empty()}, {"refusals", refusals}, {"settings", settingsJson(camera)}});
    } catch (const std::exception& error) {
        return errorReply(500, std::string("settings: ") + error.what());
    }
}

Reply stillPng(Tavri::CameraDriver& camera, bool debayer) {
    try {
        const cv::Mat image = camera.grab();
        const auto wrong = wrongSizeText(recordSource(camera).lastImageRecord(), camera.getMode(), image);
        if (!wrong.empty()) return errorReply(502, "grab: " + wrong);
        std::vector<unsigned char> png;
        encodeImage(".png", forFile(image, camera.getMode(), debayer), png);
        return {200, "image/png", std::string(png.begin(), png.end()), "still.png"};
    } catch (const std::exception& error) {
        return errorReply(502, std::string("grab: ") + error.what());
    }
}

Reply sequenceSheet(Tavri::CameraDriver& camera, int count) {
    try {
        camera.startGrabSequenceAsync(count);
        const auto set = camera.finishGrabSequenceAsync();
        const auto& verdict = recordSource(camera).sequenceVerdict();
        if (!verdict.whole()) {
            std::string text = "the set is not whole: " + verdict.describe();
            // The driver sends no trigger during a sequence: without hardware pulses the
            // first wait times out.
            const auto trigger = camera.settings()[SettingsOld::Camera::TriggerType].toString();
            if (trigger != SettingsOld::Camera::TriggerTypeValues::Hardware)
                text += " (the trigger type is " + trigger + "; a sequence takes its images from hardware trigger pulses)";
            return errorReply(502, text);
        }
        if (!set || set->images.size() != static_cast<std::size_t>(count))
            return errorReply(502, (boost::format("the driver returned %d images for a sequence of %d") %
                                    (set ? set->images.size() : 0) % count)
                                       .str());
        // Copies: the set's pixel block belongs to the plug-in.
        std::vector<cv::Mat> previews;
        for (const auto& image : set->images) previews.push_back(forFile(image, set->mode, true).clone());
        const auto jpeg = encodeJpeg(contactSheet(previews), kSheetQuality);
        return {200, "image/jpeg", std::string(jpeg.begin(), jpeg.end()), ""};
    } catch (const std::exception& error) {
        return errorReply(502, std::string("sequence: ") + error.what());
    }
}

}  // namespace TeliGrab::View
