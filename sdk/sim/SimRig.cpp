// The rig file reader: the one JSON parse (bounded nesting, numbers that overflow
// refused where they stand, every value's position kept), then the reader of the rig's
// keys. Every error names the source, line and column.

#include "sdk/sim/SimRig.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include <nlohmann/json.hpp>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/JsonText.h"

namespace Tavri::sim {
namespace {

using nlohmann::json;

// A wrong value: where it is (JSON pointer) and what is wrong.
struct RigError {
    std::string pointer;
    std::string message;
};

[[noreturn]] void refuse(const std::string& source, const std::string& text, std::size_t offset,
                         const std::string& what) {
    const Json::Position at = Json::Lines(text).at(offset);
    throw RuntimeException(source + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": " + what);
}

class Reader {
public:
    Reader(const json& value, std::string pointer) : value(value), pointer(std::move(pointer)) {}

    [[noreturn]] void fail(const std::string& message) const { throw RigError{pointer, message}; }

    void expectObject(std::initializer_list<const char*> keys) const { expectObject(std::vector<const char*>(keys)); }
    void expectObject(const std::vector<const char*>& keys) const {
        if (!value.is_object()) fail("expected an object");
        for (const auto& item : value.items()) {
            if (std::none_of(keys.begin(), keys.end(), [&](const char* key) { return item.key() == key; })) {
                std::string known;
                for (const char* key : keys) known += std::string(known.empty() ? "" : ", ") + key;
                Reader(item.value(), pointer + "/" + item.key()).fail("unknown key '" + item.key() + "' (known: " + known + ")");
            }
        }
    }
    bool has(const char* key) const { return value.contains(key); }
    Reader at(const char* key) const { return Reader(value.at(key), pointer + "/" + key); }
    Reader at(std::size_t index) const { return Reader(value.at(index), pointer + "/" + std::to_string(index)); }
    std::size_t size() const { return value.size(); }

    double number() const {
        if (!value.is_number()) fail("expected a number");
        const double number = value.get<double>();
        if (!std::isfinite(number)) fail("number out of range");
        return number;
    }
    std::uint64_t unsignedInteger(std::uint64_t max = 0xFFFFFFFFull) const {
        if (!value.is_number_unsigned() || value.get<std::uint64_t>() > max)
            fail("expected an integer from 0 to " + std::to_string(max));
        return value.get<std::uint64_t>();
    }
    std::string text() const {
        if (!value.is_string()) fail("expected a string");
        return value.get<std::string>();
    }
    bool boolean() const {
        if (!value.is_boolean()) fail("expected true or false");
        return value.get<bool>();
    }
    void expectArray() const {
        if (!value.is_array()) fail("expected an array");
    }
    template <typename T>
    T word(std::initializer_list<std::pair<const char*, T>> words) const {
        const std::string given = text();
        std::string known;
        for (const auto& [name, result] : words) {
            if (given == name) return result;
            known += std::string(known.empty() ? "" : ", ") + name;
        }
        fail("unknown word '" + given + "' (known: " + known + ")");
    }

private:
    const json& value;
    std::string pointer;
};

void readNumber(const Reader& r, const char* key, double& out) {
    if (r.has(key)) out = r.at(key).number();
}
template <typename T>
void readUnsigned(const Reader& r, const char* key, T& out) {
    if (r.has(key)) out = static_cast<T>(r.at(key).unsignedInteger());
}

void readRange(const Reader& r, const char* key, FeatureRange& range) {
    if (!r.has(key)) return;
    const Reader f = r.at(key);
    f.expectObject({"min", "max", "increment", "initial"});
    readNumber(f, "min", range.min);
    readNumber(f, "max", range.max);
    readNumber(f, "increment", range.increment);
    readNumber(f, "initial", range.initial);
    if (!(range.increment > 0.0)) f.at("increment").fail("increment must be > 0");
    if (range.min > range.max) f.fail("min must not exceed max");
    if (range.initial < range.min || range.initial > range.max) f.fail("initial must lie between min and max");
}

FrameFault readFrameFault(const Reader& r) {
    r.expectObject({"kind", "first", "count", "every", "delayMs", "burst", "extraBytes"});
    if (!r.has("kind")) r.fail("missing 'kind'");
    FrameFault fault;
    fault.kind = r.at("kind").word<FrameFault::Kind>({{"drop", FrameFault::Kind::Drop},
                                                       {"late", FrameFault::Kind::Late},
                                                       {"burst", FrameFault::Kind::Burst},
                                                       {"oversize", FrameFault::Kind::Oversize},
                                                       {"missedPulse", FrameFault::Kind::MissedPulse},
                                                       {"doublePulse", FrameFault::Kind::DoublePulse},
                                                       {"stale", FrameFault::Kind::Stale}});
    readUnsigned(r, "first", fault.first);
    readUnsigned(r, "count", fault.count);
    readUnsigned(r, "every", fault.every);
    readUnsigned(r, "delayMs", fault.delayMs);
    readUnsigned(r, "burst", fault.burst);
    readUnsigned(r, "extraBytes", fault.extraBytes);
    if (fault.every < 1) r.at("every").fail("must be >= 1");
    if (fault.burst < 1) r.at("burst").fail("must be >= 1");
    if (fault.extraBytes < 1) r.at("extraBytes").fail("must be >= 1");
    return fault;
}

CameraConfig readCamera(const Reader& r, std::size_t index) {
    std::vector<const char*> keys{"serial", "model", "vendor", "width", "height", "widthIncrement", "heightIncrement",
                                  "pixelFormats"};
    for (const auto& row : kFeatureRows)
        if (std::none_of(keys.begin(), keys.end(), [&](const char* key) { return key == std::string(row.rigKey); }))
            keys.push_back(row.rigKey);
    keys.insert(keys.end(), {"frameRate", "condition", "unplugAfterFrames", "frameFaults", "frameIds"});
    r.expectObject(keys);
    CameraConfig camera;
    camera.serial = "SIM" + std::string(index + 1 < 10 ? "000" : index + 1 < 100 ? "00" : "0") +
                    std::to_string(index + 1);
    if (r.has("serial")) camera.serial = r.at("serial").text();
    if (r.has("model")) camera.model = r.at("model").text();
    if (r.has("vendor")) camera.vendor = r.at("vendor").text();
    for (const char* key : {"serial", "model", "vendor"})
        if (r.has(key) && (r.at(key).text().empty() || r.at(key).text().size() > 63))
            r.at(key).fail("must have 1 ... 63 characters");
    readUnsigned(r, "width", camera.width);
    readUnsigned(r, "height", camera.height);
    readUnsigned(r, "widthIncrement", camera.widthIncrement);
    readUnsigned(r, "heightIncrement", camera.heightIncrement);
    if (r.has("pixelFormats")) {
        const Reader list = r.at("pixelFormats");
        list.expectArray();
        camera.pixelFormats.clear();
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Reader item = list.at(i);
            std::uint32_t code;
            try {
                code = item.word<std::uint32_t>({{"Mono8", PixelFormat::Mono8},
                                                 {"RGB8", PixelFormat::RGB8},
                                                 {"BayerBG8", PixelFormat::BayerBG8}});
            } catch (const RigError&) {
                code = static_cast<std::uint32_t>(item.unsignedInteger());
                if (bytesPerPixel(code) == 0) item.fail("unknown pixel format (known: Mono8, RGB8, BayerBG8)");
            }
            camera.pixelFormats.push_back(code);
        }
    }
    for (const auto& row : kFeatureRows) readRange(r, row.rigKey, camera.ranges[row.feature]);
    readNumber(r, "frameRate", camera.frameRate);
    if (r.has("condition"))
        camera.condition = r.at("condition").word<CameraCondition>({{"normal", CameraCondition::Normal},
                                                                     {"hung", CameraCondition::Hung},
                                                                     {"dead", CameraCondition::Dead},
                                                                     {"unplugged", CameraCondition::Unplugged}});
    if (r.has("unplugAfterFrames")) camera.unplugAfterFrames = static_cast<std::int64_t>(r.at("unplugAfterFrames").unsignedInteger());
    if (r.has("frameFaults")) {
        const Reader list = r.at("frameFaults");
        list.expectArray();
        for (std::size_t i = 0; i < list.size(); ++i) camera.frameFaults.push_back(readFrameFault(list.at(i)));
    }
    if (r.has("frameIds"))
        camera.frameIds = r.at("frameIds").word<FrameIds>(
            {{"continue", FrameIds::Continue}, {"restart", FrameIds::Restart}, {"wrap16", FrameIds::Wrap16}});
    return camera;
}

RigConfig readRig(const Reader& r) {
    r.expectObject({"seed", "frameRate", "render", "drawScene", "projector", "cameras", "faults"});
    RigConfig rig = defaultRig();
    // A file that lists its own cameras and names no shared projector keeps one projector
    // per camera, as rig files did before projectors could be shared.
    std::vector<std::string> drives = r.has("cameras") ? std::vector<std::string>{} : rig.projector.drives;
    if (r.has("seed")) rig.seed = r.at("seed").unsignedInteger(~0ull);
    readNumber(r, "frameRate", rig.frameRate);
    if (r.has("render")) rig.render = r.at("render").boolean();
    if (r.has("drawScene")) rig.drawScene = r.at("drawScene").boolean();
    std::optional<Reader> drivesAt;
    if (r.has("projector")) {
        const Reader p = r.at("projector");
        p.expectObject({"rate", "grayBits", "phaseSteps", "phasePeriod", "pulseWidthMs", "drives", "freeRunning"});
        readNumber(p, "rate", rig.projector.rate);
        readUnsigned(p, "grayBits", rig.projector.grayBits);
        readUnsigned(p, "phaseSteps", rig.projector.phaseSteps);
        readNumber(p, "phasePeriod", rig.projector.phasePeriod);
        readNumber(p, "pulseWidthMs", rig.projector.pulseWidthMs);
        if (p.has("drives")) {
            const Reader list = p.at("drives");
            list.expectArray();
            drives.clear();
            for (std::size_t i = 0; i < list.size(); ++i) drives.push_back(list.at(i).text());
            drivesAt.emplace(list);
        }
        if (p.has("freeRunning")) rig.projector.freeRunning = p.at("freeRunning").boolean();
    }
    if (r.has("cameras")) {
        const Reader list = r.at("cameras");
        list.expectArray();
        rig.cameras.clear();
        for (std::size_t i = 0; i < list.size(); ++i) rig.cameras.push_back(readCamera(list.at(i), i));
    }
    if (r.has("faults")) {
        const Reader list = r.at("faults");
        list.expectArray();
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Reader f = list.at(i);
            f.expectObject({"operation", "code", "when", "call"});
            if (!f.has("operation") || !f.has("code")) f.fail("a fault needs 'operation' and 'code'");
            OperationFault fault;
            const auto operation = operationNamed(f.at("operation").text());
            if (!operation) f.at("operation").fail("names no SDK operation");
            fault.operation = *operation;
            fault.code = static_cast<Result>(f.at("code").unsignedInteger());
            if (f.has("when"))
                fault.when = f.at("when").word<FaultWhen>(
                    {{"once", FaultWhen::Once}, {"always", FaultWhen::Always}, {"call", FaultWhen::OnCall}});
            readUnsigned(f, "call", fault.call);
            if (fault.call < 1) f.at("call").fail("must be >= 1");
            rig.faults.push_back(fault);
        }
    }
    for (std::size_t i = 0; drivesAt && i < drives.size(); ++i) {
        const auto& cameras = rig.cameras;
        if (std::none_of(cameras.begin(), cameras.end(), [&](const CameraConfig& c) { return c.serial == drives[i]; }))
            drivesAt->at(i).fail("names no camera of the rig");
    }
    rig.projector.drives = drives;
    return rig;
}

}  // namespace

RigConfig parseRig(const std::string& text, const std::string& sourceName) {
    if (text.size() > kMaxRigFileBytes)
        refuse(sourceName, text, kMaxRigFileBytes, "larger than " + std::to_string(kMaxRigFileBytes) + " bytes");
    Json::Document document;
    try {
        document = Json::parseDocument(text, kMaxRigDepth);
    } catch (const Json::ParseFailure& failure) {
        const Json::Refusal& refusal = failure.refusal;
        if (refusal.kind == Json::Refusal::Kind::TooDeep)
            refuse(sourceName, text, refusal.offset, "nested deeper than " + std::to_string(kMaxRigDepth) + " levels");
        if (refusal.kind == Json::Refusal::Kind::NumberOverflow)
            refuse(sourceName, text, refusal.tokenStart, "number out of range: " + refusal.token.substr(0, 32));
        refuse(sourceName, text, refusal.offset, "malformed JSON: " + refusal.reason);
    }
    RigConfig rig;
    try {
        rig = readRig(Reader(document.value, ""));
    } catch (const RigError& error) {
        const auto start = document.starts.find(error.pointer);
        refuse(sourceName, text, start == document.starts.end() ? 0 : start->second,
               "at " + (error.pointer.empty() ? std::string("/") : error.pointer) + ": " + error.message);
    }
    try {
        validateRig(rig);
    } catch (const RuntimeException& error) {
        throw RuntimeException(sourceName + ": " + error.what());
    }
    return rig;
}

RigConfig loadRigFile(const std::string& path) {
    // Never more than one byte past the limit, whatever the file is (a pipe, a device).
    const Json::FileText file = Json::readFile(path, kMaxRigFileBytes);
    if (file.outcome == Json::FileText::Outcome::CannotOpen || file.outcome == Json::FileText::Outcome::ReadFailed)
        throw RuntimeException("Cannot read simulated rig file '" + path + "'");
    return parseRig(file.text, path);
}

RigConfig rigFromEnvironment() {
    const char* path = std::getenv("TAVRI_SIM_RIG");
    if (!path || !*path) return defaultRig();
    return loadRigFile(path);
}

}  // namespace Tavri::sim
