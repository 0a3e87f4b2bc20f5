// Construction, destruction, and the camera's open and release.

#include <limits>

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "platform/Platform.h"

namespace Tavri {

using detail::failedTo;
using detail::formatMessage;

const int TavriCameraToshibaTeli::STRM_REQUEST_NUM;

TavriCameraToshibaTeli::TavriCameraToshibaTeli() : TavriCameraToshibaTeli(activeSdk()) {}

TavriCameraToshibaTeli::TavriCameraToshibaTeli(TeliSdk& sdk)
    : sdk(sdk),
      frameInfoSource(dynamic_cast<FrameInfoSource*>(&sdk)),
      controlRangeSource(dynamic_cast<ControlRangeSource*>(&sdk)),
      transportAddressSource(dynamic_cast<TransportAddressSource*>(&sdk)) {}

TavriCameraToshibaTeli::~TavriCameraToshibaTeli() {
    // A worker still held would go on using this object after it is gone: wait for it.
    if (sequenceThread.joinable()) sequenceThread.join();
    // Departure: an open that failed half-way holds the camera exclusively with its
    // stream, requests, block and event, and no later release gives them back. The
    // host may drop such an object and retry with a new one, so give them back here.
    // An initialised object makes no SDK call: the host releases it before deleting it.
    // A camera whose close failed is given back here too.
    if (!isInitialized && (cameraHandle || streamHandle || requestBuffer || imageEvent || !unclosedCameras.empty()))
        releaseResources();
}

bool TavriCameraToshibaTeli::initializeCamera(const char* serialNumber) {
    if (isInitialized) {
        TAVRI_LOG(3, "Camera already initialized");
        return true;
    }
    // An earlier attempt that failed half-way may still hold a camera, stream, block,
    // requests or event; give them back before opening anew so nothing leaks.
    releaseResources();

    if (sdk.sdkGetCameraCount(&cameraCount) != SdkResult::Success)
        throw RuntimeException("Failed to get number of cameras");
    if (cameraCount == 0) throw RuntimeException("No cameras found");

    int index = 0;
    if (serialNumber) {
        index = getCameraIndex(serialNumber);
        if (index < 0)
            throw RuntimeException(formatMessage("Failed to locate a camera with serial number %s", serialNumber));
        TAVRI_LOG(1, formatMessage("Initializing camera with index %d and serial number %s", index, serialNumber));
    }

    if (sdk.sdkOpenCamera(static_cast<std::uint32_t>(index), &cameraHandle, nullptr, true, nullptr, 1) !=
        SdkResult::Success)
        throw RuntimeException("Failed to open camera.");

    imageEvent = platform::createEvent();
    if (!imageEvent) throw RuntimeException("Failed to create camera event handler");

    payloadSize = 0;
    // Without a stream every later step would work on a null handle.
    if (sdk.sdkOpenStream(cameraHandle, imageEvent, &payloadSize, &streamHandle, 0) != SdkResult::Success)
        throw RuntimeException("Failed to open camera stream");

    // A block size that does not fit 32 bits would leave the later requests outside
    // the block; it is refused like any failed allocation.
    const std::uint64_t blockSize = std::uint64_t{STRM_REQUEST_NUM} * payloadSize;
    if (blockSize <= std::numeric_limits<std::uint32_t>::max())
        requestBuffer = static_cast<std::uint8_t*>(platform::allocateBlock(static_cast<std::uint32_t>(blockSize)));
    if (!requestBuffer) throw RuntimeException("Failed to allocate camera payload buffer");

    setCameraTriggerHardware();

    std::uint32_t width = 0;
    if (sdk.sdkGetSensorWidth(cameraHandle, &width) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("get sensor width"));
    else if (sdk.sdkSetWidth(cameraHandle, width) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set image width"));

    std::uint32_t height = 0;
    if (sdk.sdkGetSensorHeight(cameraHandle, &height) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("get sensor height"));
    else if (sdk.sdkSetHeight(cameraHandle, height) != SdkResult::Success)
        TAVRI_LOG(3, failedTo("set image height"));

    initQueue();

    sdk.sdkSetBalanceRatio(cameraHandle, BalanceSelector::Red, 1.875);
    sdk.sdkSetBalanceRatio(cameraHandle, BalanceSelector::Blue, 1.281);
    setExposureTime(8333.0);
    setMode(ImageType::Raw);

    isInitialized = true;
    return true;
}

void TavriCameraToshibaTeli::releaseCamera() {
    if (!isInitialized) return;
    releaseResources();
    isInitialized = false;
}

void TavriCameraToshibaTeli::releaseResources() {
    // Departure: a failed close leaves the camera open in the SDK, where no other
    // object could open it until the driver is released; try again at each chance.
    for (auto it = unclosedCameras.begin(); it != unclosedCameras.end();) {
        if (sdk.sdkCloseCamera(*it) == SdkResult::Success) {
            it = unclosedCameras.erase(it);
        } else {
            TAVRI_LOG(3, failedTo("close camera"));
            ++it;
        }
    }
    if (streamHandle) {
        flush();
        dequeue(STRM_REQUEST_NUM);
    }
    releaseQueue();
    if (streamHandle) {
        if (sdk.sdkCloseStream(streamHandle) != SdkResult::Success) TAVRI_LOG(3, failedTo("close image stream"));
    }
    if (cameraHandle) {
        if (sdk.sdkCloseCamera(cameraHandle) != SdkResult::Success) {
            TAVRI_LOG(3, failedTo("close camera"));
            unclosedCameras.push_back(cameraHandle);
        }
    }
    if (requestBuffer) platform::freeBlock(requestBuffer);
    if (imageEvent) platform::closeEvent(imageEvent);

    // Released handles are cleared so that nothing can use them again.
    streamHandle = nullptr;
    cameraHandle = nullptr;
    requestBuffer = nullptr;
    imageEvent = nullptr;
    completedRequest = nullptr;
    completedBuffer = nullptr;
    completedSize = 0;
}

}  // namespace Tavri
