#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "TavriAPI/ImageSet.h"
#include "TavriAPI/ImageType.h"
#include "TavriAPI/InternalCameraInfo.h"
#include "TavriCommon/Settings.h"

namespace Tavri {

// What the platform asks of every camera driver. The order of the operations is the
// order of the virtual table's slots and is part of the plug-in contract.
class CameraDriver {
public:
    CameraDriver();
    virtual ~CameraDriver();

    virtual std::vector<InternalCameraInfo> getInfoInternalCameras() const = 0;
    virtual const char* driver() = 0;
    virtual bool initializeCamera(const char* serialNumber) = 0;
    virtual void releaseCamera() = 0;
    virtual bool isConnected() = 0;
    virtual bool isReal() const = 0;
    virtual bool updateSettings(const TSettings& settings) = 0;
    virtual const TSettings settings() = 0;
    virtual ImageType getMode() = 0;
    virtual void setMode(ImageType mode) = 0;
    virtual int getBayerLayout() = 0;
    virtual int getRows() = 0;
    virtual int getCols() = 0;
    virtual cv::Mat grab() = 0;
    virtual void startGrabSequenceAsync(int count) = 0;
    virtual std::shared_ptr<ImageSet> finishGrabSequenceAsync() = 0;
    virtual void initGrabContinuous() = 0;
    virtual void getNextImage(cv::Mat& image, int timeout) = 0;
    virtual void releaseGrabContinuous() = 0;

    CameraDriver(const CameraDriver&) = delete;
    CameraDriver& operator=(const CameraDriver&) = delete;
};

}  // namespace Tavri

// The plug-in's entry points, looked up by these names with C linkage.
extern "C" {
using TavriInitializeDriverFn = void (*)();
using TavriCreateCameraFn = Tavri::CameraDriver* (*)();
using TavriReleaseDriverFn = void (*)();
}
