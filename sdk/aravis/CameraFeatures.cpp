#include "sdk/aravis/CameraFeatures.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/format.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/ErrorMapping.h"
#include "sdk/aravis/FeatureAccess.h"
#include "sdk/aravis/GLibHandles.h"

namespace Tavri::aravis::features {

namespace detail {

// Why the last control call on this thread failed; see takeFailureNote.
thread_local std::string failureNote;

void note(const std::string& why) { failureNote = why; }

std::string numberText(double value) { return (boost::format("%g") % value).str(); }

std::string offeredEntries(ArvCamera* camera, const char* feature) {
    GErrorSlot error;
    guint count = 0;
    const char** entries = arv_camera_dup_available_enumerations_as_strings(camera, feature, &count, error.out());
    std::vector<std::string> names;
    for (guint i = 0; entries && i < count; ++i) names.emplace_back(entries[i]);
    g_free(entries);
    return names.empty() ? "none" : boost::algorithm::join(names, ", ");
}

Result probe(ArvCamera* camera, const char* feature, bool& present) {
    GErrorSlot error;
    present = arv_camera_is_feature_available(camera, feature, error.out());
    if (error) {
        present = false;
        const Result result = resultFromError(error.get());
        // A node that is absent is an answer, not a failure.
        return result == AravisResult::FeatureMissing ? AravisResult::Success : result;
    }
    return AravisResult::Success;
}

Result probeEntry(ArvCamera* camera, const char* feature, const char* entry, bool& present) {
    GErrorSlot error;
    present = arv_camera_is_enumeration_entry_available(camera, feature, entry, error.out());
    if (error) {
        present = false;
        const Result result = resultFromError(error.get());
        return result == AravisResult::FeatureMissing || result == AravisResult::ValueNotSupported
                   ? AravisResult::Success
                   : result;
    }
    return AravisResult::Success;
}

// The feature must exist; then the enumeration must offer the entry.
Result requireEntry(ArvCamera* camera, const char* feature, const char* entry) {
    bool present = false;
    if (const Result r = probe(camera, feature, present)) return r;
    if (!present) return AravisResult::FeatureMissing;
    if (const Result r = probeEntry(camera, feature, entry, present)) return r;
    return present ? AravisResult::Success : AravisResult::ValueNotSupported;
}

Result setEntry(ArvCamera* camera, const char* feature, const char* entry) {
    const Result r = requireEntry(camera, feature, entry);
    if (r == AravisResult::FeatureMissing)
        note((boost::format("%s = %s refused: the camera has no feature %s") % feature % entry % feature).str());
    else if (r == AravisResult::ValueNotSupported)
        note((boost::format("%s = %s refused: no such entry; the camera offers %s") % feature % entry %
              offeredEntries(camera, feature))
                 .str());
    if (r) return r;
    return writeFeature(feature, entry, [&](GError** e) { arv_camera_set_string(camera, feature, entry, e); });
}

Result getEntry(ArvCamera* camera, const char* feature, std::string& entry) {
    bool present = false;
    if (const Result r = probe(camera, feature, present)) return r;
    if (!present) return AravisResult::FeatureMissing;
    const char* value = nullptr;
    const Result r = run([&](GError** e) { value = arv_camera_get_string(camera, feature, e); });
    if (r) return r;
    entry = value ? value : "";
    return AravisResult::Success;
}

// Trigger features of cameras with a TriggerSelector are per trigger; the frame
// trigger is the one the SDK's single trigger stands for.
Result selectFrameTrigger(ArvCamera* camera) {
    bool present = false;
    if (const Result r = probe(camera, "TriggerSelector", present)) return r;
    if (!present) return AravisResult::Success;
    if (const Result r = probeEntry(camera, "TriggerSelector", "FrameStart", present)) return r;
    if (!present) return AravisResult::Success;
    return writeFeature("TriggerSelector", "FrameStart",
                        [&](GError** e) { arv_camera_set_string(camera, "TriggerSelector", "FrameStart", e); });
}

Result getInteger(ArvCamera* camera, const char* feature, std::uint32_t& value) {
    bool present = false;
    if (const Result r = probe(camera, feature, present)) return r;
    if (!present) return AravisResult::FeatureMissing;
    gint64 read = 0;
    if (const Result r = run([&](GError** e) { read = arv_camera_get_integer(camera, feature, e); })) return r;
    if (read < 0 || read > std::numeric_limits<std::uint32_t>::max()) return AravisResult::ValueOutOfRange;
    value = static_cast<std::uint32_t>(read);
    return AravisResult::Success;
}

Result getFirstInteger(ArvCamera* camera, const char* primary, const char* fallback, std::uint32_t& value) {
    const Result r = getInteger(camera, primary, value);
    return r == AravisResult::FeatureMissing ? getInteger(camera, fallback, value) : r;
}

// Width or height; a region that does not fit its offset is moved to the origin
// first, since the driver asks for the whole sensor.
Result setExtent(ArvCamera* camera, const char* feature, const char* offset, std::uint32_t value) {
    bool present = false;
    if (const Result r = probe(camera, feature, present)) return r;
    if (!present) {
        note((boost::format("%s = %d refused: the camera has no feature %s") % feature % value % feature).str());
        return AravisResult::FeatureMissing;
    }
    const auto set = [&](GError** e) { arv_camera_set_integer(camera, feature, value, e); };
    Result r = writeFeature(feature, std::to_string(value), set);
    if (r != AravisResult::ValueOutOfRange) return r;
    if (probe(camera, offset, present) || !present) return r;
    if (run([&](GError** e) { arv_camera_set_integer(camera, offset, 0, e); })) return r;
    return writeFeature(feature, std::to_string(value), set);
}

const char* pixelFormatName(std::uint32_t pfnc) {
    switch (pfnc) {
    case PixelFormat::Mono8: return "Mono8";
    case PixelFormat::RGB8: return "RGB8";
    case PixelFormat::BayerBG8: return "BayerBG8";
    default: return nullptr;
    }
}

Result requireFeature(ArvCamera* camera, const char* feature) {
    bool present = false;
    if (const Result r = probe(camera, feature, present)) return r;
    if (present) return AravisResult::Success;
    note((boost::format("the camera has no feature %s") % feature).str());
    return AravisResult::FeatureMissing;
}

Result requireEither(ArvCamera* camera, const char* primary, const char* fallback, const char** chosen) {
    for (const char* feature : {primary, fallback}) {
        bool present = false;
        if (const Result r = probe(camera, feature, present)) return r;
        if (!present) continue;
        if (chosen) *chosen = feature;
        return AravisResult::Success;
    }
    note((boost::format("the camera has neither %s nor %s") % primary % fallback).str());
    return AravisResult::FeatureMissing;
}

}  // namespace detail

using namespace detail;

std::string takeFailureNote() {
    std::string why;
    why.swap(failureNote);
    return why;
}

std::string hardwareTriggerLine() {
    const char* line = std::getenv("TAVRI_ARAVIS_TRIGGER_LINE");
    return line && *line ? line : "Line0";
}

Result readSerialNumber(ArvCamera* camera, std::string& serial) {
    for (const char* feature : {"DeviceSerialNumber", "DeviceID"}) {
        std::string value;
        bool present = false;
        if (const Result r = probe(camera, feature, present)) return r;
        if (!present) continue;
        const char* read = nullptr;
        if (const Result r = run([&](GError** e) { read = arv_camera_get_string(camera, feature, e); })) return r;
        if (read && *read) {
            serial = read;
            return AravisResult::Success;
        }
    }
    return AravisResult::FeatureMissing;
}

Result getSensorWidth(ArvCamera* camera, std::uint32_t& width) {
    return getFirstInteger(camera, "SensorWidth", "WidthMax", width);
}

Result getSensorHeight(ArvCamera* camera, std::uint32_t& height) {
    return getFirstInteger(camera, "SensorHeight", "HeightMax", height);
}

Result getWidth(ArvCamera* camera, std::uint32_t& width) { return getInteger(camera, "Width", width); }
Result setWidth(ArvCamera* camera, std::uint32_t width) { return setExtent(camera, "Width", "OffsetX", width); }
Result getHeight(ArvCamera* camera, std::uint32_t& height) { return getInteger(camera, "Height", height); }
Result setHeight(ArvCamera* camera, std::uint32_t height) { return setExtent(camera, "Height", "OffsetY", height); }

Result setPixelFormat(ArvCamera* camera, std::uint32_t pfnc) {
    if (const char* name = pixelFormatName(pfnc)) return setEntry(camera, "PixelFormat", name);
    if (const Result r = requireFeature(camera, "PixelFormat")) return r;
    guint count = 0;
    gint64* offered = nullptr;
    if (const Result r = run([&](GError** e) { offered = arv_camera_dup_available_pixel_formats(camera, &count, e); }))
        return r;
    const bool known = offered && std::find(offered, offered + count, gint64{pfnc}) != offered + count;
    g_free(offered);
    if (!known) {
        note((boost::format("PixelFormat = 0x%08x refused: the camera does not offer it") % pfnc).str());
        return AravisResult::ValueNotSupported;
    }
    return writeFeature("PixelFormat", (boost::format("0x%08x") % pfnc).str(),
                        [&](GError** e) { arv_camera_set_pixel_format(camera, pfnc, e); });
}

Result largestPayload(ArvCamera* camera, std::uint32_t& bytes) {
    std::uint32_t width = 0, height = 0;
    if (const Result r = getSensorWidth(camera, width)) return r;
    if (const Result r = getSensorHeight(camera, height)) return r;

    std::uint64_t bytesPerPixel = 0;
    for (const auto& [name, size] : {std::pair<const char*, std::uint64_t>{"Mono8", 1}, {"RGB8", 3}, {"BayerBG8", 1}}) {
        bool offered = false;
        if (const Result r = probeEntry(camera, "PixelFormat", name, offered)) return r;
        if (offered) bytesPerPixel = std::max(bytesPerPixel, size);
    }
    if (bytesPerPixel == 0) {
        // None of the driver's formats: size the buffers for what the camera sends now,
        // or for three bytes a pixel if it does not say.
        ArvPixelFormat current = 0;
        const Result r = run([&](GError** e) { current = arv_camera_get_pixel_format(camera, e); });
        if (r == AravisResult::NotResponding) return r;
        bytesPerPixel = r ? 3 : std::max<std::uint64_t>(1, (ARV_PIXEL_FORMAT_BIT_PER_PIXEL(current) + 7) / 8);
    }
    std::uint64_t largest = std::uint64_t{width} * height * bytesPerPixel;

    guint own = 0;
    if (run([&](GError** e) { own = arv_camera_get_payload(camera, e); }) == AravisResult::Success)
        largest = std::max<std::uint64_t>(largest, own);
    if (largest == 0 || largest > std::numeric_limits<std::uint32_t>::max()) return AravisResult::ValueOutOfRange;
    bytes = static_cast<std::uint32_t>(largest);
    return AravisResult::Success;
}

Result getTriggerMode(ArvCamera* camera, bool& on) {
    if (const Result r = selectFrameTrigger(camera)) return r;
    std::string mode;
    if (const Result r = getEntry(camera, "TriggerMode", mode)) return r;
    on = mode == "On";
    return AravisResult::Success;
}

Result setTriggerMode(ArvCamera* camera, bool on) {
    if (const Result r = selectFrameTrigger(camera)) return r;
    return setEntry(camera, "TriggerMode", on ? "On" : "Off");
}

Result setTriggerSequence(ArvCamera* camera, std::uint32_t sequence) {
    bool present = false;
    if (const Result r = probe(camera, "TriggerSequence", present)) return r;
    if (!present) {
        if (sequence == 0) return AravisResult::Success;
        note((boost::format("TriggerSequence = %d refused: the camera has no feature TriggerSequence") % sequence)
                 .str());
        return AravisResult::FeatureMissing;
    }
    if (const Result r = selectFrameTrigger(camera)) return r;
    const std::string entry = "TriggerSequence" + std::to_string(sequence);
    bool isEntry = false;
    if (const Result r = probeEntry(camera, "TriggerSequence", entry.c_str(), isEntry)) return r;
    if (isEntry)
        return writeFeature("TriggerSequence", entry,
                            [&](GError** e) { arv_camera_set_string(camera, "TriggerSequence", entry.c_str(), e); });
    return writeFeature("TriggerSequence", std::to_string(sequence),
                        [&](GError** e) { arv_camera_set_integer(camera, "TriggerSequence", sequence, e); });
}

Result setTriggerSource(ArvCamera* camera, std::uint32_t source) {
    std::string name;
    if (source == TriggerSourceCode::Hardware)
        name = hardwareTriggerLine();
    else if (source == TriggerSourceCode::Software)
        name = "Software";
    else {
        note((boost::format("TriggerSource code %d refused: only 0 (hardware line) and 64 (Software) are known") %
              source)
                 .str());
        return AravisResult::ValueNotSupported;
    }
    if (const Result r = selectFrameTrigger(camera)) return r;
    return setEntry(camera, "TriggerSource", name.c_str());
}

Result executeSoftwareTrigger(ArvCamera* camera) {
    if (const Result r = requireFeature(camera, "TriggerSoftware")) return r;
    if (const Result r = selectFrameTrigger(camera)) return r;
    // A free-running camera makes its next frame anyway, and many refuse the command
    // while TriggerMode is Off: the trigger is then already answered.
    std::string mode;
    if (const Result r = getEntry(camera, "TriggerMode", mode)) return r;
    if (mode == "Off") return AravisResult::Success;
    return writeFeature("TriggerSoftware", "(command)",
                        [&](GError** e) { arv_camera_execute_command(camera, "TriggerSoftware", e); });
}

Result getTriggerActivation(ArvCamera* camera, std::uint32_t& activation) {
    if (const Result r = selectFrameTrigger(camera)) return r;
    std::string edge;
    if (const Result r = getEntry(camera, "TriggerActivation", edge)) return r;
    if (edge == "FallingEdge")
        activation = 0;
    else if (edge == "RisingEdge")
        activation = 1;
    else
        return AravisResult::ValueNotSupported;
    return AravisResult::Success;
}

Result setTriggerActivation(ArvCamera* camera, std::uint32_t activation) {
    if (activation > 1) {
        note((boost::format("TriggerActivation code %d refused: only 0 (FallingEdge) and 1 (RisingEdge)") %
              activation)
                 .str());
        return AravisResult::ValueNotSupported;
    }
    if (const Result r = selectFrameTrigger(camera)) return r;
    return setEntry(camera, "TriggerActivation", activation == 0 ? "FallingEdge" : "RisingEdge");
}

}  // namespace Tavri::aravis::features
