// The rig description: the default rig, its checks, and the JSON rig file.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "TavriCommon/Exceptions.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri::sim {

const char* SimResult::name(Result code) {
    switch (code) {
    case Success: return "Success";
    case AlreadyInitialized: return "AlreadyInitialized";
    case CameraAlreadyOpen: return "CameraAlreadyOpen";
    case NotResponding: return "NotResponding";
    case NoCompletedRequest: return "NoCompletedRequest";
    case NotInitialized: return "NotInitialized";
    case NullArgument: return "NullArgument";
    case NullHandle: return "NullHandle";
    case UnknownHandle: return "UnknownHandle";
    case ClosedHandle: return "ClosedHandle";
    case WrongHandleKind: return "WrongHandleKind";
    case IndexOutOfRange: return "IndexOutOfRange";
    case CameraUnplugged: return "CameraUnplugged";
    case AccessDenied: return "AccessDenied";
    case StreamAlreadyOpen: return "StreamAlreadyOpen";
    case NullBuffer: return "NullBuffer";
    case ZeroBufferSize: return "ZeroBufferSize";
    case RequestNotHeld: return "RequestNotHeld";
    case RequestInUse: return "RequestInUse";
    case RequestOfOtherStream: return "RequestOfOtherStream";
    case FrameTooLarge: return "FrameTooLarge";
    case ValueOutOfRange: return "ValueOutOfRange";
    case ValueNotFinite: return "ValueNotFinite";
    case ValueNotOnIncrement: return "ValueNotOnIncrement";
    case InvalidSelector: return "InvalidSelector";
    case UnsupportedPixelFormat: return "UnsupportedPixelFormat";
    case InvalidTriggerSource: return "InvalidTriggerSource";
    case InvalidTriggerActivation: return "InvalidTriggerActivation";
    case InvalidTriggerSequence: return "InvalidTriggerSequence";
    case SoftwareTriggerNotSelected: return "SoftwareTriggerNotSelected";
    case LockedWhileAcquiring: return "LockedWhileAcquiring";
    case TooManyRequests: return "TooManyRequests";
    default: return "Unknown";
    }
}

RigConfig defaultRig() {
    RigConfig rig;
    CameraConfig first;
    first.serial = "SIM0001";
    CameraConfig second;
    second.serial = "SIM0002";
    rig.cameras = {first, second};
    return rig;
}

namespace {

bool isOperationName(const std::string& name) {
    return std::any_of(kSdkOrdinals.begin(), kSdkOrdinals.end(),
                       [&](const SdkOrdinal& entry) { return name == entry.name; });
}

void checkRange(const FeatureRange& range, const std::string& where) {
    const bool finite = std::isfinite(range.min) && std::isfinite(range.max) && std::isfinite(range.increment) &&
                        std::isfinite(range.initial);
    if (!finite || range.increment <= 0.0 || range.min > range.max || range.initial < range.min ||
        range.initial > range.max)
        throw RuntimeException(where + ": needs finite min <= initial <= max and increment > 0");
}

}  // namespace

void validateRig(const RigConfig& rig) {
    const auto fail = [](const std::string& text) { throw RuntimeException("Invalid simulated rig: " + text); };
    if (!(rig.frameRate > 0.0 && rig.frameRate <= 1000.0)) fail("frameRate must be in (0, 1000]");
    const auto& p = rig.projector;
    if (!(p.rate > 0.0 && p.rate <= 1000.0)) fail("projector rate must be in (0, 1000]");
    if (p.grayBits < 1 || p.grayBits > 12) fail("projector grayBits must be 1 ... 12");
    if (p.phaseSteps > 64) fail("projector phaseSteps must be 0 ... 64");
    if (!(p.phasePeriod >= 0.0) || !std::isfinite(p.phasePeriod)) fail("projector phasePeriod must be >= 0");
    if (!(p.pulseWidthMs >= 0.0) || p.pulseWidthMs >= 1000.0 / p.rate)
        fail("projector pulseWidthMs must be >= 0 and shorter than the pulse period");
    std::set<std::string> serials;
    for (std::size_t i = 0; i < rig.cameras.size(); ++i) {
        const auto& c = rig.cameras[i];
        const std::string where = "camera " + std::to_string(i) + " (" + c.serial + ")";
        if (c.serial.empty() || c.serial.size() > 63) fail(where + ": serial must have 1 ... 63 characters");
        if (!serials.insert(c.serial).second) fail(where + ": serial used twice");
        if (c.model.size() > 63 || c.vendor.size() > 63) fail(where + ": model and vendor have at most 63 characters");
        if (c.widthIncrement < 1 || c.heightIncrement < 1) fail(where + ": increments must be >= 1");
        if (c.width < kMinWidth || c.height < kMinHeight || c.width > 16384 || c.height > 16384)
            fail(where + ": sensor must be 128 x 16 ... 16384 x 16384");
        if (c.width % c.widthIncrement || c.height % c.heightIncrement || kMinWidth % c.widthIncrement ||
            kMinHeight % c.heightIncrement)
            fail(where + ": sensor size and minimum size must be multiples of the increments");
        if (c.pixelFormats.empty()) fail(where + ": needs at least one pixel format");
        std::set<std::uint32_t> formats;
        for (auto f : c.pixelFormats) {
            if (bytesPerPixel(f) == 0) fail(where + ": unknown pixel format " + std::to_string(f));
            if (!formats.insert(f).second) fail(where + ": pixel format listed twice");
        }
        if (formats.count(PixelFormat::BayerBG8) && (c.widthIncrement % 2 || c.heightIncrement % 2))
            fail(where + ": BayerBG8 needs even increments");
        checkRange(c.exposure, where + " exposure");
        checkRange(c.gain, where + " gain");
        checkRange(c.blackLevel, where + " blackLevel");
        checkRange(c.balanceRatio, where + " balanceRatio");
        if (!(c.frameRate >= 0.0 && c.frameRate <= 1000.0)) fail(where + ": frameRate must be in [0, 1000]");
        if (c.unplugAfterFrames < -1) fail(where + ": unplugAfterFrames must be -1 or >= 0");
        for (const auto& f : c.frameFaults)
            if (f.every < 1 || f.burst < 1 || f.extraBytes < 1)
                fail(where + ": frame fault needs every, burst and extraBytes >= 1");
    }
    for (const auto& f : rig.faults) {
        if (!isOperationName(f.operation)) fail("fault names no SDK operation: '" + f.operation + "'");
        if (f.call < 1) fail("fault call must be >= 1");
    }
}

// ---- The rig file ----

namespace {

using nlohmann::json;

// A wrong value: where it is (JSON pointer) and what is wrong.
struct RigError {
    std::string pointer;
    std::string message;
};

// Offsets of every value of a well-formed JSON text, by JSON pointer, so a wrong value
// can be reported with its line and column.
class Locator {
public:
    explicit Locator(const std::string& text) : text(text) {
        skipSpace();
        value("");
    }
    std::size_t offsetOf(const std::string& pointer) const {
        const auto found = offsets.find(pointer);
        return found == offsets.end() ? 0 : found->second;
    }

private:
    const std::string& text;
    std::size_t pos = 0;
    std::map<std::string, std::size_t> offsets;

    char peek() const { return pos < text.size() ? text[pos] : '\0'; }
    void skipSpace() {
        while (pos < text.size() && std::strchr(" \t\r\n", text[pos])) ++pos;
    }
    static std::string escape(const std::string& key) {
        std::string out;
        for (char c : key) out += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
        return out;
    }
    std::string string() {
        std::string out;
        ++pos;
        while (pos < text.size() && text[pos] != '"') {
            if (text[pos] == '\\') ++pos;
            if (pos < text.size()) out += text[pos++];
        }
        ++pos;
        return out;
    }
    void value(const std::string& pointer) {
        offsets[pointer] = pos;
        const char c = peek();
        if (c == '{') {
            ++pos;
            skipSpace();
            while (pos < text.size() && peek() != '}') {
                const std::string key = string();
                skipSpace();
                ++pos;  // ':'
                skipSpace();
                value(pointer + "/" + escape(key));
                skipSpace();
                if (peek() == ',') ++pos;
                skipSpace();
            }
            ++pos;
        } else if (c == '[') {
            ++pos;
            skipSpace();
            for (std::size_t index = 0; pos < text.size() && peek() != ']'; ++index) {
                value(pointer + "/" + std::to_string(index));
                skipSpace();
                if (peek() == ',') ++pos;
                skipSpace();
            }
            ++pos;
        } else if (c == '"') {
            string();
        } else {
            while (pos < text.size() && !std::strchr(",}] \t\r\n", text[pos])) ++pos;
        }
    }
};

std::string position(const std::string& text, std::size_t offset) {
    std::size_t line = 1, column = 1;
    for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return std::to_string(line) + ":" + std::to_string(column);
}

class Reader {
public:
    Reader(const json& value, std::string pointer) : value(value), pointer(std::move(pointer)) {}

    [[noreturn]] void fail(const std::string& message) const { throw RigError{pointer, message}; }

    void expectObject(std::initializer_list<const char*> keys) const {
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
        return value.get<double>();
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
                                                       {"oversize", FrameFault::Kind::Oversize}});
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
    r.expectObject({"serial", "model", "vendor", "width", "height", "widthIncrement", "heightIncrement",
                    "pixelFormats", "exposure", "gain", "blackLevel", "balanceRatio", "frameRate", "condition",
                    "unplugAfterFrames", "frameFaults"});
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
    readRange(r, "exposure", camera.exposure);
    readRange(r, "gain", camera.gain);
    readRange(r, "blackLevel", camera.blackLevel);
    readRange(r, "balanceRatio", camera.balanceRatio);
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
    return camera;
}

RigConfig readRig(const Reader& r) {
    r.expectObject({"seed", "frameRate", "render", "projector", "cameras", "faults"});
    RigConfig rig = defaultRig();
    if (r.has("seed")) rig.seed = r.at("seed").unsignedInteger(~0ull);
    readNumber(r, "frameRate", rig.frameRate);
    if (r.has("render")) rig.render = r.at("render").boolean();
    if (r.has("projector")) {
        const Reader p = r.at("projector");
        p.expectObject({"rate", "grayBits", "phaseSteps", "phasePeriod", "pulseWidthMs"});
        readNumber(p, "rate", rig.projector.rate);
        readUnsigned(p, "grayBits", rig.projector.grayBits);
        readUnsigned(p, "phaseSteps", rig.projector.phaseSteps);
        readNumber(p, "phasePeriod", rig.projector.phasePeriod);
        readNumber(p, "pulseWidthMs", rig.projector.pulseWidthMs);
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
            fault.operation = f.at("operation").text();
            if (!isOperationName(fault.operation)) f.at("operation").fail("names no SDK operation");
            fault.code = static_cast<Result>(f.at("code").unsignedInteger());
            if (f.has("when"))
                fault.when = f.at("when").word<FaultWhen>(
                    {{"once", FaultWhen::Once}, {"always", FaultWhen::Always}, {"call", FaultWhen::OnCall}});
            readUnsigned(f, "call", fault.call);
            if (fault.call < 1) f.at("call").fail("must be >= 1");
            rig.faults.push_back(fault);
        }
    }
    return rig;
}

}  // namespace

RigConfig parseRig(const std::string& text, const std::string& sourceName) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        const std::size_t offset = error.byte > 0 ? error.byte - 1 : 0;
        std::string what = error.what();
        const auto cut = what.find("syntax error");
        if (cut != std::string::npos) what = what.substr(cut);
        throw RuntimeException(sourceName + ":" + position(text, offset) + ": malformed JSON: " + what);
    }
    RigConfig rig;
    try {
        rig = readRig(Reader(document, ""));
    } catch (const RigError& error) {
        const Locator locator(text);
        throw RuntimeException(sourceName + ":" + position(text, locator.offsetOf(error.pointer)) + ": at " +
                               (error.pointer.empty() ? "/" : error.pointer) + ": " + error.message);
    }
    try {
        validateRig(rig);
    } catch (const RuntimeException& error) {
        throw RuntimeException(sourceName + ": " + error.what());
    }
    return rig;
}

RigConfig loadRigFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw RuntimeException("Cannot read simulated rig file '" + path + "'");
    std::ostringstream content;
    content << file.rdbuf();
    return parseRig(content.str(), path);
}

RigConfig rigFromEnvironment() {
    const char* path = std::getenv("TAVRI_SIM_RIG");
    if (!path || !*path) return defaultRig();
    return loadRigFile(path);
}

}  // namespace Tavri::sim
