#include "sdk/aravis/AravisStream.h"

#include <boost/format.hpp>

#include <algorithm>
#include <string>

#include "TavriCommon/Logger.h"
#include "platform/Platform.h"
#include "sdk/aravis/AravisResult.h"
#include "sdk/aravis/ErrorMapping.h"

namespace Tavri::aravis {
namespace {

// Longest wait for a buffer Aravis has reported but not yet queued (microseconds).
constexpr guint64 kReportedBufferWaitUs = 200000;

Result prepareCamera(ArvCamera* camera, const TransportSettings& transport) {
    if (const Result r = transport.applyToCamera(camera)) return r;
    GErrorSlot error;
    // Requests are queued ahead of time and refilled: the camera must run until it
    // is told to stop. A camera without the feature runs continuously anyway.
    arv_camera_set_acquisition_mode(camera, ARV_ACQUISITION_MODE_CONTINUOUS, error.out());
    const Result result = resultFromError(error.get());
    return result == AravisResult::FeatureMissing ? AravisResult::Success : result;
}

bool isImage(ArvBuffer* buffer) {
    return arv_buffer_get_payload_type(buffer) == ARV_BUFFER_PAYLOAD_TYPE_IMAGE && arv_buffer_get_n_parts(buffer) > 0;
}

// Bytes the camera announced for the image (0 when it is not an image).
std::uint64_t imageBytes(ArvBuffer* buffer) {
    if (!isImage(buffer)) return 0;
    const std::uint64_t width = static_cast<std::uint64_t>(std::max(0, arv_buffer_get_image_width(buffer)));
    const std::uint64_t height = static_cast<std::uint64_t>(std::max(0, arv_buffer_get_image_height(buffer)));
    const std::uint64_t bits = ARV_PIXEL_FORMAT_BIT_PER_PIXEL(arv_buffer_get_image_pixel_format(buffer));
    return (width * height * bits + 7) / 8;
}

std::uint32_t filledBytes(ArvBuffer* buffer, std::uint32_t capacity) {
    size_t filled = 0;
    if (isImage(buffer))
        arv_buffer_get_image_data(buffer, &filled);
    else
        arv_buffer_get_data(buffer, &filled);
    return static_cast<std::uint32_t>(std::min<size_t>(filled, capacity));
}

}  // namespace

std::unique_ptr<AravisStream> AravisStream::open(std::shared_ptr<CameraConnection> connection, EventHandle event,
                                                 Result& result) {
    std::unique_ptr<AravisStream> stream(new AravisStream(connection, event));
    if ((result = TransportSettings::fromEnvironment(stream->transport_))) return nullptr;
    result = connection->withFeatures(
        [&](ArvCamera* camera) -> Result { return prepareCamera(camera, stream->transport_); });
    if (result) return nullptr;
    return stream;
}

// Aravis's stream is made when the first request is queued or acquisition starts:
// it sets up a receive thread and packet ring that an open for settings alone would
// only tear down again, a tenth of a second of every such open and close.
Result AravisStream::ensureStream() {
    if (stream_) return AravisResult::Success;
    return connection_->withFeatures([&](ArvCamera* camera) -> Result {
        GErrorSlot error;
        ArvStream* created = arv_camera_create_stream(camera, &AravisStream::onStreamEvent, this, error.out());
        if (!created) {
            const Result r = resultFromError(error.get());
            TAVRI_LOG(3, (boost::format("Aravis: cannot create the stream of camera %s: %s") %
                          connection_->deviceId() % error.message())
                             .str());
            return r == AravisResult::NotResponding ? r : AravisResult::StreamFailed;
        }
        stream_.reset(created);
        transport_.applyToStream(created);
        return AravisResult::Success;
    });
}

AravisStream::AravisStream(std::shared_ptr<CameraConnection> connection, EventHandle event)
    : connection_(std::move(connection)), event_(event) {}

AravisStream::~AravisStream() {
    // Dropping the stream joins its thread, so no report reaches a dead object, and
    // drops the stream's references to queued buffers; ours go with the requests.
    stream_.reset();
    for (ArvBuffer* buffer : parked_) g_object_unref(buffer);
}

void AravisStream::onStreamEvent(void* self, ArvStreamCallbackType type, ArvBuffer*) {
    if (type != ARV_STREAM_CALLBACK_TYPE_BUFFER_DONE) return;
    auto* stream = static_cast<AravisStream*>(self);
    stream->connection_->noteStreamActivity();
    stream->reported_.fetch_add(1);
    stream->event_.completed();
}

AravisStream::Request* AravisStream::find(RequestHandle handle) {
    const auto found = requests_.find(handle);
    return found == requests_.end() ? nullptr : found->second.get();
}

Result AravisStream::createRequest(void* buffer, std::uint32_t size, RequestHandle* request) {
    if (!buffer || size == 0 || !request) return AravisResult::InvalidArgument;
    auto entry = std::make_unique<Request>();
    entry->data = static_cast<std::uint8_t*>(buffer);
    entry->size = size;
    // user_data names the request, so a completed buffer leads back to it.
    entry->buffer.reset(arv_buffer_new_full(size, buffer, entry.get(), nullptr));
    if (!entry->buffer) return AravisResult::InvalidArgument;
    std::lock_guard<std::mutex> lock(queueMutex_);
    RequestHandle handle = entry.get();
    requests_.emplace(handle, std::move(entry));
    *request = handle;
    return AravisResult::Success;
}

Result AravisStream::releaseRequest(RequestHandle handle) {
    std::lock_guard<std::mutex> lock(queueMutex_);
    Request* request = find(handle);
    if (!request) return AravisResult::InvalidHandle;
    if (request->onStream) {
        // Completed but never taken: give it up. Still waiting to be filled: refuse,
        // since Aravis may be writing into it.
        parkCompleted();
        const auto parked = std::find(parked_.begin(), parked_.end(), request->buffer.get());
        if (parked == parked_.end()) return AravisResult::RequestBusy;
        g_object_unref(*parked);
        parked_.erase(parked);
    }
    requests_.erase(handle);
    return AravisResult::Success;
}

Result AravisStream::enqueue(RequestHandle handle) {
    std::lock_guard<std::mutex> lock(queueMutex_);
    Request* request = find(handle);
    if (!request) return AravisResult::InvalidHandle;
    if (request->onStream) return AravisResult::RequestBusy;
    if (const Result r = ensureStream()) return r;
    request->onStream = true;
    // The stream takes over the extra reference until the buffer is popped.
    arv_stream_push_buffer(stream_.get(), GObjectPtr<ArvBuffer>(g_object_ref(request->buffer.get())).release());
    return AravisResult::Success;
}

void AravisStream::countTaken() {
    int reported = reported_.load();
    while (reported > 0 && !reported_.compare_exchange_weak(reported, reported - 1)) {
    }
}

void AravisStream::parkCompleted() {
    if (!stream_) return;
    while (ArvBuffer* buffer = arv_stream_try_pop_buffer(stream_.get())) {
        countTaken();
        parked_.push_back(buffer);
    }
}

ArvBuffer* AravisStream::popCompleted() {
    if (!parked_.empty()) {
        ArvBuffer* buffer = parked_.front();
        parked_.pop_front();
        return buffer;
    }
    if (!stream_) return nullptr;
    ArvBuffer* buffer = arv_stream_try_pop_buffer(stream_.get());
    if (!buffer && reported_.load() > 0) buffer = arv_stream_timeout_pop_buffer(stream_.get(), kReportedBufferWaitUs);
    if (buffer) countTaken();
    return buffer;
}

bool AravisStream::completedWaiting() {
    if (!parked_.empty() || reported_.load() > 0) return true;
    if (!stream_) return false;
    gint input = 0, output = 0;
    arv_stream_get_n_buffers(stream_.get(), &input, &output);
    return output > 0;
}

// The completion-event rule (sdk/CompletionEvent.h): Aravis counts the buffer
// (reported_) before it signals.
void AravisStream::syncEvent() {
    event_.settle([this] { return completedWaiting(); });
}

Result AravisStream::takeCompleted(RequestHandle* handle, std::uint8_t** data, std::uint32_t* size) {
    if (!handle || !data || !size) return AravisResult::InvalidArgument;
    std::lock_guard<std::mutex> lock(queueMutex_);
    ArvBuffer* buffer = popCompleted();
    if (!buffer) return AravisResult::NoCompletedRequest;

    auto* request = static_cast<Request*>(const_cast<void*>(arv_buffer_get_user_data(buffer)));
    g_object_unref(buffer);  // the stream's reference; the request keeps its own
    if (!request || !find(request)) return AravisResult::InvalidHandle;
    request->onStream = false;

    Result status = resultFromBufferStatus(arv_buffer_get_status(buffer));
    std::uint32_t bytes = 0;
    if (status == AravisResult::Success) {
        // Aravis stops writing at the end of the buffer and may still call a cut-off
        // image complete; the image's own size tells.
        if (imageBytes(buffer) > request->size)
            status = AravisResult::ImageTooLarge;
        else
            bytes = filledBytes(buffer, request->size);
    }
    *handle = request;
    *data = request->data;
    *size = bytes;
    remember(request, buffer, status);
    // The failed-take rule (sdk/TeliSdk.h): while acquiring, a failed frame's request
    // goes straight back on the stream, so lost packets never drain the pool.
    if (status != AravisResult::Success && acquiring_.load()) {
        request->onStream = true;
        arv_stream_push_buffer(stream_.get(), GObjectPtr<ArvBuffer>(g_object_ref(request->buffer.get())).release());
    }

    syncEvent();
    return status;
}

void AravisStream::remember(RequestHandle request, ArvBuffer* buffer, Result status) {
    FrameInfo& info = lastTakenInfo_;
    info = FrameInfo{};
    lastTaken_ = request;
    info.frameNumber = arv_buffer_get_frame_id(buffer);
    if (ARV_IS_GV_STREAM(stream_.get())) {
        // GigE Vision's block id: 16 bits, 0 left out.
        info.frameIdWrap = 65535;
        info.frameIdFirst = 1;
    }
    if (const guint64 camera = arv_buffer_get_timestamp(buffer)) info.cameraTimeNs = camera;
    // Aravis stamps the buffer from the wall clock; the host compares on its steady one.
    if (const guint64 system = arv_buffer_get_system_timestamp(buffer)) {
        const auto wall = static_cast<std::int64_t>(g_get_real_time()) * 1000;
        const auto steady = static_cast<std::int64_t>(steadyNowNs());
        const std::int64_t captured = steady - (wall - static_cast<std::int64_t>(system));
        if (captured > 0) info.captureSteadyNs = static_cast<std::uint64_t>(captured);
    }
    if (status != AravisResult::Success) {
        info.status = status;
        const ArvBufferStatus arvStatus = arv_buffer_get_status(buffer);
        info.statusText = arvStatus == ARV_BUFFER_STATUS_SUCCESS ? "image larger than its request buffer"
                                                                  : bufferStatusName(arvStatus);
    }
}

bool AravisStream::frameInfo(RequestHandle request, FrameInfo* info) {
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (!info || !request || request != lastTaken_) return false;
    *info = lastTakenInfo_;
    return true;
}

Result AravisStream::flushWaitQueue() {
    std::lock_guard<std::mutex> lock(queueMutex_);
    // Aravis 0.8 cannot hand back queued buffers one by one: completed ones are kept
    // aside, then the stream thread is stopped with its queues emptied (our own
    // references keep every request alive) and started again.
    parkCompleted();
    if (!stream_) return AravisResult::Success;  // nothing was ever queued
    arv_stream_stop_thread(stream_.get(), TRUE);
    reported_.store(0);
    for (auto& [handle, request] : requests_) {
        const bool parked = std::find(parked_.begin(), parked_.end(), request->buffer.get()) != parked_.end();
        if (!parked) request->onStream = false;
    }
    arv_stream_start_thread(stream_.get());
    syncEvent();
    return AravisResult::Success;
}

Result AravisStream::start() {
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        if (const Result r = ensureStream()) return r;
    }
    atStart_ = StreamStatistics::read(stream_.get());
    const Result result = connection_->withFeatures([](ArvCamera* camera) {
        GErrorSlot error;
        arv_camera_start_acquisition(camera, error.out());
        return resultFromError(error.get());
    });
    if (result == AravisResult::Success) acquiring_.store(true);
    return result;
}

Result AravisStream::stop() {
    acquiring_.store(false);
    const Result result = connection_->withFeatures([](ArvCamera* camera) {
        GErrorSlot error;
        arv_camera_stop_acquisition(camera, error.out());
        return resultFromError(error.get());
    });
    // Told even when the camera is gone: the figures are what explains the lost images.
    if (stream_) logAcquisition(connection_->deviceId(), StreamStatistics::read(stream_.get()) - atStart_);
    return result;
}

}  // namespace Tavri::aravis
