// Grab sequences: a worker thread collects n externally triggered images into one
// image set while the host goes on.

#include "TavriAPI/ImageSetMemory.h"
#include "TavriAPI/Messages.h"
#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/StdAbortThread.h"
#include "platform/Platform.h"

namespace Tavri {

using detail::formatMessage;

void TavriCameraToshibaTeli::startGrabSequenceAsync(int count) {
    // A second worker would share the stream and the completed-request fields with
    // the first: refuse before anything changes.
    if (sequenceThread.joinable()) throw RuntimeException("Grab sequence already running");
    checkRequestCount(count, "grab a sequence of");

    sequenceLength = count;
    const int rows = getRows();
    const int cols = getCols();
    currentImageSet = std::make_shared<ImageSet>(count, cols, rows, static_cast<ImageType>(mode));
    // One record per image and one for a failed take, made now: the worker only fills.
    records.images.clear();
    records.images.reserve(static_cast<std::size_t>(count) + 1);
    records.requested = count;
    records.endedBecause.clear();
    verdict = SetVerdict{};
    wrongSizeLogged = false;
    startStream(count);
    records.startSteadyNs = streamStartNs;
    sequenceThread = StdAbortThread([this] { grabSequenceWorker(); });
}

void TavriCameraToshibaTeli::grabSequenceWorker() {
    TAVRI_LOG(1, "grabSequence worker thread started");
    int taken = 0;
    try {
        for (int i = 0; i < sequenceLength; ++i) {
            if (platform::waitForEvent(imageEvent, static_cast<std::uint32_t>(sequenceImageTimeout)) != 0)
                throw RuntimeException(DriverText::ImageWaitFailed);
            const Result result =
                sdk.sdkTakeCompletedRequest(streamHandle, &completedRequest, &completedBuffer, &completedSize);
            records.images.emplace_back();
            recordTake(records.images.back(), i, result);
            if (result != SdkResult::Success) throw RuntimeException("Failed to grab image from camera");
            ImageSet& set = *currentImageSet;
            copyCompleted(set.images.at(static_cast<std::size_t>(i)).data, static_cast<std::size_t>(set.bytesPerImage),
                          &records.images.back());
            taken = i + 1;
        }
    } catch (const std::exception& error) {
        TAVRI_LOG(3, "An unknown error occured");
        records.endedBecause = error.what();
        TAVRI_LOG(1, formatMessage("Grab sequence ended after %d of %d images: %s", taken, sequenceLength,
                                   error.what()));
    }
    // A recycled block still holds an earlier set: images not reached must not pass for this one's.
    clearImagesFrom(*currentImageSet, static_cast<std::size_t>(taken));
    TAVRI_LOG(1, "grabSequence worker thread ended");
}

std::shared_ptr<ImageSet> TavriCameraToshibaTeli::finishGrabSequenceAsync() {
    sequenceThread.join();
    // Judged from the records alone; a broken set is told one problem per line.
    verdict = judgeSet(records);
    for (const auto& problem : verdict.problems)
        TAVRI_LOG(3, formatMessage("Grab sequence image %d: %s", problem.image, problem.detail));
    stopStream(sequenceLength);
    sequenceLength = 0;
    return currentImageSet;
}

const SequenceRecords& TavriCameraToshibaTeli::sequenceRecords() const { return records; }
const SetVerdict& TavriCameraToshibaTeli::sequenceVerdict() const { return verdict; }
const ImageRecord& TavriCameraToshibaTeli::lastImageRecord() const { return lastRecord; }
std::shared_ptr<ImageSet> TavriCameraToshibaTeli::sequenceSet() const { return currentImageSet; }

}  // namespace Tavri
