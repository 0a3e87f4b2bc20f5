// The fixed pool of stream requests over the one buffer block, and the start and
// stop of acquisition.

#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "platform/Platform.h"

namespace Tavri {

using detail::failedTo;
using detail::formatMessage;

void TavriCameraToshibaTeli::checkRequestCount(int count, const char* operation) {
    // Requests beyond the pool do not exist; a slot past it must never be touched.
    if (count < 0 || count > STRM_REQUEST_NUM)
        throw RuntimeException(formatMessage("Cannot %s %d requests: the pool holds 0 to %d", operation, count,
                                             STRM_REQUEST_NUM));
}

void TavriCameraToshibaTeli::initQueue() {
    for (int i = 0; i < STRM_REQUEST_NUM; ++i) {
        requests[i] = nullptr;
        std::uint8_t* slice = requestBuffer + static_cast<std::uint32_t>(i * payloadSize);
        if (sdk.sdkCreateRequest(streamHandle, slice, payloadSize, &requests[i]) != SdkResult::Success) {
            requests[i] = nullptr;
            throw RuntimeException("Failed to create camera stream request #" + std::to_string(i));
        }
    }
}

void TavriCameraToshibaTeli::releaseQueue() {
    for (int i = 0; i < STRM_REQUEST_NUM; ++i) {
        if (!requests[i]) continue;
        if (sdk.sdkReleaseRequest(streamHandle, requests[i]) != SdkResult::Success)
            TAVRI_LOG(3, failedTo("release ImageRequest #" + std::to_string(i) + " from camera queue"));
        // Cleared either way: the stream that owned the request is closed next.
        requests[i] = nullptr;
    }
}

void TavriCameraToshibaTeli::enqueue(int count) {
    checkRequestCount(count, "enqueue");
    for (int i = 0; i < count; ++i) {
        if (sdk.sdkEnqueueRequest(streamHandle, requests[i]) != SdkResult::Success)
            throw RuntimeException("Failed to enqueue camera stream request #" + std::to_string(i));
    }
}

void TavriCameraToshibaTeli::dequeue(int count) {
    for (int i = 0; i < count; ++i) {
        if (sdk.sdkTakeCompletedRequest(streamHandle, &completedRequest, &completedBuffer, &completedSize) ==
            SdkResult::NoCompletedRequest)
            break;
    }
}

void TavriCameraToshibaTeli::flush() {
    if (sdk.sdkFlushWaitQueue(streamHandle) != SdkResult::Success) TAVRI_LOG(3, failedTo("flush camera wait queue"));
}

void TavriCameraToshibaTeli::startStream(int count) {
    checkRequestCount(count, "start a stream with");
    flush();
    dequeue(count);
    // A signal still pending stands for an image the drain has dropped; left alone it
    // would wake the next wait for a request that is not there.
    platform::waitForEvent(imageEvent, 0);
    enqueue(count);
    // A frame captured before this moment belongs to an earlier acquisition.
    streamStartNs = steadyNowNs();
    if (sdk.sdkStartStream(streamHandle, 8) != SdkResult::Success)
        throw RuntimeException("Failed to start camera stream.");
}

void TavriCameraToshibaTeli::stopStream(int count) {
    if (streamHandle && sdk.sdkStopStream(streamHandle) != SdkResult::Success)
        throw RuntimeException("Failed to stop camera stream.");
    flush();
    dequeue(count);
}

}  // namespace Tavri
