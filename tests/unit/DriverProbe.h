#pragma once
// The camera class with its protected state and steps opened up for tests.

#include <memory>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "tests/support/FakeCamera.h"
#include "tests/support/RecordingLogger.h"
#include "tests/support/TestHelpers.h"

namespace Tavri::testing {

class DriverProbe : public TavriCameraToshibaTeli {
public:
    using TavriCameraToshibaTeli::TavriCameraToshibaTeli;

    using TavriCameraToshibaTeli::checkPresence;
    using TavriCameraToshibaTeli::dequeue;
    using TavriCameraToshibaTeli::enqueue;
    using TavriCameraToshibaTeli::flush;
    using TavriCameraToshibaTeli::grabImage;
    using TavriCameraToshibaTeli::initQueue;
    using TavriCameraToshibaTeli::releaseQueue;
    using TavriCameraToshibaTeli::releaseResources;
    using TavriCameraToshibaTeli::setBlackLevel;
    using TavriCameraToshibaTeli::setBlueBalance;
    using TavriCameraToshibaTeli::setCameraTriggerHardware;
    using TavriCameraToshibaTeli::setCameraTriggerSoftware;
    using TavriCameraToshibaTeli::getExposureTime;
    using TavriCameraToshibaTeli::setExposureTime;
    using TavriCameraToshibaTeli::setRedBalance;
    using TavriCameraToshibaTeli::startStream;
    using TavriCameraToshibaTeli::stopStream;
    using TavriCameraToshibaTeli::STRM_REQUEST_NUM;

    using TavriCameraToshibaTeli::cameraHandle;
    using TavriCameraToshibaTeli::completedSize;
    using TavriCameraToshibaTeli::currentImageSet;
    using TavriCameraToshibaTeli::imageEvent;
    using TavriCameraToshibaTeli::isInitialized;
    using TavriCameraToshibaTeli::mode;
    using TavriCameraToshibaTeli::payloadSize;
    using TavriCameraToshibaTeli::requestBuffer;
    using TavriCameraToshibaTeli::requests;
    using TavriCameraToshibaTeli::sequenceImageTimeout;
    using TavriCameraToshibaTeli::sequenceLength;
    using TavriCameraToshibaTeli::sequenceThread;
    using TavriCameraToshibaTeli::softwareTrigger;
    using TavriCameraToshibaTeli::streamHandle;
};

// A fake camera, a camera object over it and a recording logger.
struct DriverFixture {
    explicit DriverFixture(std::vector<FakeCameraInfo> cameras = {{"Toshiba Teli", "BU1203MC", "CAM0"}},
                           std::uint32_t width = 8, std::uint32_t height = 4)
        : sdk(std::move(cameras), width, height), camera(std::make_unique<DriverProbe>(sdk)) {}

    // Whatever the test left open or half-open is given back, so leak checks see
    // only the driver's own leaks.
    ~DriverFixture() {
        // The test's expectations end with the test, not with the clean-up.
        ::testing::Mock::VerifyAndClearExpectations(&sdk);
        if (camera) camera->releaseResources();
    }

    // Opens the camera and forgets the open's log lines.
    void open(const char* serial = "CAM0") {
        camera->initializeCamera(serial);
        log->clear();
    }

    ScopedRecordingLogger log;
    FakeCamera sdk;
    std::unique_ptr<DriverProbe> camera;
};

}  // namespace Tavri::testing
