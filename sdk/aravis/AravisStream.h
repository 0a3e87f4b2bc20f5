#pragma once
// One camera's image stream over Aravis, with the SDK's request model on top: a
// request is an Aravis buffer over memory of the driver's, queued with enqueue,
// handed back by take. Aravis's stream thread only signals the driver's event; every
// buffer is taken on the caller's thread.

#include <arv.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "sdk/CompletionEvent.h"
#include "sdk/FrameInfo.h"
#include "sdk/TeliSdk.h"
#include "sdk/aravis/CameraConnection.h"
#include "sdk/aravis/GLibHandles.h"
#include "sdk/aravis/StreamStatistics.h"
#include "sdk/aravis/TransportSettings.h"

namespace Tavri::aravis {

class AravisStream {
public:
    // Creates the stream on the connection's camera. `event` is signalled for every
    // completed buffer; it must outlive the stream.
    static std::unique_ptr<AravisStream> open(std::shared_ptr<CameraConnection> connection, EventHandle event,
                                              Result& result);

    AravisStream(const AravisStream&) = delete;
    AravisStream& operator=(const AravisStream&) = delete;
    ~AravisStream();

    CameraConnection& connection() { return *connection_; }

    Result createRequest(void* buffer, std::uint32_t size, RequestHandle* request);
    Result releaseRequest(RequestHandle request);
    Result enqueue(RequestHandle request);
    Result takeCompleted(RequestHandle* request, std::uint8_t** buffer, std::uint32_t* size);
    Result flushWaitQueue();
    Result start();
    Result stop();
    // The frame of the last take, if `request` is what it handed out.
    bool frameInfo(RequestHandle request, FrameInfo* info);

private:
    struct Request {
        GObjectPtr<ArvBuffer> buffer;  // the backend's own reference, for the request's life
        std::uint8_t* data = nullptr;
        std::uint32_t size = 0;
        bool onStream = false;  // handed to Aravis and not yet taken back
    };

    AravisStream(std::shared_ptr<CameraConnection> connection, EventHandle event);
    static void onStreamEvent(void* self, ArvStreamCallbackType type, ArvBuffer* buffer);
    Request* find(RequestHandle handle);
    // Creates Aravis's stream if it does not exist yet; under queueMutex_.
    Result ensureStream();
    ArvBuffer* popCompleted();
    void parkCompleted();
    bool completedWaiting();
    void syncEvent();
    void countTaken();
    // Keeps what `buffer` tells of its frame for frameInfo (under queueMutex_).
    void remember(RequestHandle request, ArvBuffer* buffer, Result status);

    std::shared_ptr<CameraConnection> connection_;
    CompletionEvent event_;
    TransportSettings transport_;
    GObjectPtr<ArvStream> stream_;  // null until the first enqueue or start
    std::mutex queueMutex_;
    std::map<RequestHandle, std::unique_ptr<Request>> requests_;
    // Completed buffers a flush took out of Aravis's output queue; they are taken
    // before anything newer. Each holds the reference the stream held.
    std::deque<ArvBuffer*> parked_;
    // Completions reported by Aravis's thread and not yet popped. Aravis reports a
    // buffer just before it lands in the output queue, so a take that finds the
    // queue empty while this is positive waits briefly for it.
    std::atomic<int> reported_{0};
    // Aravis's counters when acquisition last started; stop logs the difference.
    StreamStatistics atStart_;
    // Between a successful start and the next stop: a failed take re-queues its request.
    std::atomic<bool> acquiring_{false};
    // What the last take knew of its frame, read before the buffer could be refilled.
    RequestHandle lastTaken_ = nullptr;
    FrameInfo lastTakenInfo_;
};

}  // namespace Tavri::aravis
