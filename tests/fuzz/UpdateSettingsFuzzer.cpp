// updateSettings with arbitrary settings trees (read from JSON text) on one camera of
// the simulated rig, opened once; settings() must still describe the camera after
// each update. Refusals are host exceptions; anything else fails the run.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Logger.h"
#include "TavriCommon/Settings.h"
#include "sdk/sim/SimSdk.h"

namespace {

// The driver's refusals are expected here; printing each would drown the run.
class QuietLogger : public Tavri::Log::LoggerInterface {
public:
    void log(int, const char*, int, const std::string&) override {}
};

struct Rig {
    Rig() {
        Tavri::Log::GlobalLogger::install(std::make_shared<QuietLogger>());
        if (sdk.sdkInitialize(65535) != 0) throw Tavri::RuntimeException("The simulated rig did not start");
        camera.initializeCamera(camera.getInfoInternalCameras().at(0).serialNumber.c_str());
    }
    Tavri::sim::SimSdk sdk;
    Tavri::TavriCameraToshibaTeli camera{sdk};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Rig rig;
    Tavri::TSettings tree;
    try {
        tree = Tavri::TSettings::fromJson(std::string(reinterpret_cast<const char*>(data), size), "fuzz.json");
    } catch (const Tavri::Exception&) {
        return 0;
    }
    try {
        rig.camera.updateSettings(tree);
    } catch (const Tavri::Exception&) {
    }
    rig.camera.settings().toJson();
    return 0;
}
