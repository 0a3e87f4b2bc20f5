// The three C entry points the platform resolves by name.

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"

using namespace Tavri;

extern "C" {

void initializeDriver() {
    TAVRI_LOG(1, "Initializing Toshiba Teli driver.");
    const Result result = selectSdk().sdkInitialize(65535);
    if (result != SdkResult::Success && result != SdkResult::AlreadyInitialized)
        throw RuntimeException(
            detail::formatMessage("Failed to initialize Toshiba Teli driver. Got return code: %d", result));
}

CameraDriver* createCamera() {
    TAVRI_LOG(1, "Creating camera");
    return new TavriCameraToshibaTeli();
}

void releaseDriver() {
    TAVRI_LOG(1, "Releasing Toshiba Teli driver.");
    // Without a selected backend the SDK was never started, so there is nothing to stop.
    TeliSdk* sdk = nullptr;
    try {
        sdk = &activeSdk();
    } catch (const RuntimeException&) {
        return;
    }
    sdk->sdkTerminate();
}

}  // extern "C"
