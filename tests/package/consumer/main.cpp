// A host built against an installed TavriToshibaTeli: loads the plug-in by path as the
// platform does, lists the cameras it sees and reads the first one's image size and
// settings tree. TAVRI_PLUGIN is the plug-in's path, as the CMake package or the
// pkg-config file gives it.
#include <dlfcn.h>

#include <iostream>
#include <memory>

#include "TavriAPI/CameraDriver.h"
#include "TavriCommon/Exceptions.h"

namespace {

template <typename Function>
Function entryPoint(void* plugin, const char* name) {
    auto function = reinterpret_cast<Function>(dlsym(plugin, name));
    if (!function) throw Tavri::RuntimeException(std::string("no entry point ") + name);
    return function;
}

}  // namespace

int main() {
    std::cout << "plugin " << TAVRI_PLUGIN << '\n';
    void* plugin = dlopen(TAVRI_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (!plugin) {
        std::cerr << "cannot load the plug-in: " << dlerror() << '\n';
        return 2;
    }
    try {
        const auto initializeDriver = entryPoint<TavriInitializeDriverFn>(plugin, "initializeDriver");
        const auto createCamera = entryPoint<TavriCreateCameraFn>(plugin, "createCamera");
        const auto releaseDriver = entryPoint<TavriReleaseDriverFn>(plugin, "releaseDriver");
        initializeDriver();
        {
            std::unique_ptr<Tavri::CameraDriver> camera(createCamera());
            const auto cameras = camera->getInfoInternalCameras();
            for (const auto& info : cameras) std::cout << "camera " << info.serialNumber << '\n';
            if (!cameras.empty() && camera->initializeCamera(cameras.front().serialNumber.c_str())) {
                // The plug-in builds the tree and this program reads it: both must
                // use the one installed TavriCommon.
                const Tavri::TSettings settings = camera->settings();
                std::cout << "size " << camera->getCols() << 'x' << camera->getRows() << " settings "
                          << settings.keys().size() << '\n';
                camera->releaseCamera();
            }
        }
        releaseDriver();
    } catch (const Tavri::Exception& error) {
        std::cerr << "driver error: " << error.what() << '\n';
        return 1;
    }
    dlclose(plugin);
    return 0;
}
