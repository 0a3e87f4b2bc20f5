#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "TavriAPI/CameraDriver.h"
#include "TavriAPI/CameraAddresses.h"
#include "TavriAPI/ImageRecords.h"
#include "TavriAPI/SettingRanges.h"
#include "sdk/ControlRanges.h"
#include "sdk/TransportAddress.h"
#include "sdk/FrameInfo.h"
#include "sdk/TeliSdk.h"

namespace Tavri {

// One Toshiba Teli camera behind the platform's camera-driver interface.
class TavriCameraToshibaTeli : public CameraDriver,
                               public ImageRecordSource,
                               public SettingRangeSource,
                               public CameraAddressSource {
public:
    virtual ~TavriCameraToshibaTeli();

    std::vector<InternalCameraInfo> getInfoInternalCameras() const override;
    const char* driver() override;
    bool initializeCamera(const char* serialNumber) override;
    void releaseCamera() override;
    bool isConnected() override;
    bool isReal() const override;
    bool updateSettings(const TSettings& settings) override;
    const TSettings settings() override;
    ImageType getMode() override;
    void setMode(ImageType mode) override;
    int getBayerLayout() override;
    int getRows() override;
    int getCols() override;
    cv::Mat grab() override;
    void startGrabSequenceAsync(int count) override;
    std::shared_ptr<ImageSet> finishGrabSequenceAsync() override;
    void initGrabContinuous() override;
    void getNextImage(cv::Mat& image, int timeout) override;
    void releaseGrabContinuous() override;

    const SequenceRecords& sequenceRecords() const override;
    const SetVerdict& sequenceVerdict() const override;
    const ImageRecord& lastImageRecord() const override;
    std::shared_ptr<ImageSet> sequenceSet() const override;

    std::vector<SettingRange> settingRanges() override;
    std::string transportAddress(const std::string& serialNumber) override;

    // Talks to the backend that initializeDriver selected.
    TavriCameraToshibaTeli();
    // Talks to the given backend, which must outlive the object.
    explicit TavriCameraToshibaTeli(TeliSdk& sdk);

protected:
    bool checkPresence();

    void initQueue();
    void releaseQueue();
    void flush();
    void enqueue(int count);
    void dequeue(int count);
    void startStream(int count);
    void stopStream(int count);

    void grabImage(unsigned char* destination, int timeout);
    void grabSequenceWorker();

    double getExposureTime();
    void setExposureTime(double exposure);
    void setBlackLevel(double level);
    void setRedBalance(double ratio);
    void setBlueBalance(double ratio);

    void setCameraTriggerHardware();
    void setCameraTriggerSoftware();

    // Gives back whatever a failed or finished open still holds; used by release and
    // by an open that follows a failed one.
    void releaseResources();

    static const int STRM_REQUEST_NUM = 120;

    bool isInitialized = false;
    // Raw until the first setMode: the catalogue's default colour mode.
    std::int32_t mode = static_cast<std::int32_t>(ImageType::Raw);
    std::int32_t sequenceLength = 0;
    std::int32_t sequenceImageTimeout = 500;
    bool softwareTrigger = false;
    std::uint32_t cameraCount = 0;
    std::uint32_t payloadSize = 0;
    std::uint32_t completedSize = 0;
    EventHandle imageEvent = nullptr;
    CameraHandle cameraHandle = nullptr;
    StreamHandle streamHandle = nullptr;
    std::uint8_t* requestBuffer = nullptr;
    std::shared_ptr<ImageSet> currentImageSet;
    std::array<RequestHandle, STRM_REQUEST_NUM> requests{};
    std::uint8_t* completedBuffer = nullptr;
    RequestHandle completedRequest = nullptr;
    std::thread sequenceThread;

    TeliSdk& sdk;

    // The backend's frame information, when it offers any (found once, at construction).
    FrameInfoSource* frameInfoSource = nullptr;
    // The backend's control ranges, when it tells them (found once, at construction).
    ControlRangeSource* controlRangeSource = nullptr;
    TransportAddressSource* transportAddressSource = nullptr;
    // Steady-clock time just before the last start of acquisition.
    std::uint64_t streamStartNs = 0;
    // Storage for one record per image, made at the start of a sequence: the worker
    // allocates nothing per image.
    SequenceRecords records;
    SetVerdict verdict;
    ImageRecord lastRecord;
    bool wrongSizeLogged = false;

private:
    int getCameraIndex(const char* serialNumber);
    // Sets one balance ratio, reads it back and logs both with `readBackMessage`.
    void setBalanceRatio(std::uint32_t selector, double ratio, const char* readBackMessage);
    // Refuses a request count outside the pool before any SDK call.
    static void checkRequestCount(int count, const char* operation);
    // grabImage with the destination's size: the copy never runs past `capacity`.
    // `exact`: the destination is the image of the colour mode, so an image of another
    // size is marked in its record.
    void grabImageInto(std::uint8_t* destination, std::size_t capacity, int timeout, bool exact);
    // Copies the last completed payload, bounded by `capacity`; a surplus is dropped
    // and logged. With `record`, `capacity` is what the colour mode needs: a payload of
    // another size (a mode the camera did not take) marks the record, and is logged
    // once per grab or sequence.
    void copyCompleted(std::uint8_t* destination, std::size_t capacity, ImageRecord* record);
    // Fills `record` for the take that answered `result`: the host time now, and what
    // the backend knows of the request taken.
    void recordTake(ImageRecord& record, std::int32_t index, Result result);

    // Cameras whose close failed: the SDK still holds them open, so they are closed
    // again at the next open or the deletion of this object.
    std::vector<CameraHandle> unclosedCameras;

};

}  // namespace Tavri

extern "C" {
void initializeDriver();
Tavri::CameraDriver* createCamera();
void releaseDriver();
}
