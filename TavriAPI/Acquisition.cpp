// Single grabs and continuous grabbing: trigger, wait, take, copy, re-queue.

#include <algorithm>
#include <cstring>

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "platform/Platform.h"

namespace Tavri {

using detail::formatMessage;

namespace {
int matTypeFor(std::int32_t mode) { return mode == static_cast<std::int32_t>(ImageType::Color) ? CV_8UC3 : CV_8UC1; }
std::size_t byteSize(const cv::Mat& image) { return image.total() * image.elemSize(); }
}  // namespace

cv::Mat TavriCameraToshibaTeli::grab() {
    const int cols = getCols();
    const int rows = getRows();
    cv::Mat image;
    image.create(rows, cols, matTypeFor(mode));
    initGrabContinuous();
    grabImageInto(image.data, byteSize(image), 2000, true);
    releaseGrabContinuous();
    return image;
}

void TavriCameraToshibaTeli::initGrabContinuous() {
    lastRecord.index = -1;  // the next image taken is image 0 of this run
    wrongSizeLogged = false;
    startStream(STRM_REQUEST_NUM);
}

void TavriCameraToshibaTeli::getNextImage(cv::Mat& image, int timeout) {
    if (!image.data) throw RuntimeException("Cannot grab into an image without data");
    if (!image.isContinuous()) throw RuntimeException("Cannot grab into an image whose data are not continuous");
    grabImageInto(image.data, byteSize(image), timeout, true);
}

void TavriCameraToshibaTeli::releaseGrabContinuous() { stopStream(STRM_REQUEST_NUM); }

// Without a size for the destination, the copy is bounded by a request buffer: no
// completed image can be longer than that.
void TavriCameraToshibaTeli::grabImage(unsigned char* destination, int timeout) {
    grabImageInto(destination, payloadSize, timeout, false);
}

void TavriCameraToshibaTeli::grabImageInto(std::uint8_t* destination, std::size_t capacity, int timeout, bool exact) {
    if (softwareTrigger && sdk.sdkExecuteSoftwareTrigger(cameraHandle) != SdkResult::Success)
        throw RuntimeException("Failed to send software trigger signal to camera");
    // -1 becomes 0xFFFFFFFF: no time limit.
    if (platform::waitForEvent(imageEvent, static_cast<std::uint32_t>(timeout)) != 0)
        throw RuntimeException(DriverText::ImageWaitFailed);
    const Result taken = sdk.sdkTakeCompletedRequest(streamHandle, &completedRequest, &completedBuffer, &completedSize);
    recordTake(lastRecord, lastRecord.index + 1, taken);
    if (taken != SdkResult::Success) throw RuntimeException("Failed to grab image from camera.");
    copyCompleted(destination, capacity, exact ? &lastRecord : nullptr);
    if (sdk.sdkEnqueueRequest(streamHandle, completedRequest) != SdkResult::Success)
        throw RuntimeException("Failed to re-enqueue image stream request on camera.");
}

void TavriCameraToshibaTeli::recordTake(ImageRecord& record, std::int32_t index, Result result) {
    record = ImageRecord{};
    record.index = index;
    record.hostTimeNs = steadyNowNs();
    record.status = result;
    if (result == SdkResult::Success) record.bytes = completedSize;
    FrameInfo info;
    if (frameInfoSource && result != SdkResult::NoCompletedRequest &&
        frameInfoSource->frameInfo(streamHandle, completedRequest, &info)) {
        record.frameNumber = info.frameNumber;
        record.frameIdWrap = info.frameIdWrap;
        record.frameIdFirst = info.frameIdFirst;
        record.cameraTimeNs = info.cameraTimeNs;
        record.captureSteadyNs = info.captureSteadyNs;
        record.pulse = info.pulse;
        record.pattern = info.pattern;
        if (result == SdkResult::Success) record.status = info.status;
        record.statusText = info.statusText;
    }
}

void TavriCameraToshibaTeli::copyCompleted(std::uint8_t* destination, std::size_t capacity, ImageRecord* record) {
    if (record && completedSize != capacity) {
        // The pixels were laid out for another format: they must not pass as the mode's.
        record->status = ImageRecord::kWrongSize;
        record->statusText = ImageRecord::kWrongSizeText;
        if (!wrongSizeLogged)
            TAVRI_LOG(3, formatMessage("Completed image has %d bytes where the colour mode needs %d: the camera did not "
                                       "take its pixel format",
                                       completedSize, capacity));
        wrongSizeLogged = true;
    }
    if (completedSize == 0) return;
    if (!completedBuffer) {
        TAVRI_LOG(3, formatMessage("Completed request reported %d bytes but no buffer; nothing copied", completedSize));
        return;
    }
    // Never read past the request's buffer nor write past the destination.
    const std::size_t limit = std::min<std::size_t>(capacity, payloadSize);
    const std::size_t copied = std::min<std::size_t>(completedSize, limit);
    std::memcpy(destination, completedBuffer, copied);
    if (copied < completedSize)
        TAVRI_LOG(3, formatMessage("Dropped %d of %d image bytes: only %d fit the destination", completedSize - copied,
                                   completedSize, copied));
}

}  // namespace Tavri
