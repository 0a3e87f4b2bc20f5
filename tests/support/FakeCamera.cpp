#include "tests/support/FakeCamera.h"

#include <cmath>
#include <algorithm>
#include <cstring>


namespace Tavri::testing {

using ::testing::_;
using ::testing::Invoke;

namespace {
// Handles are addresses of tokens the fake owns, so each is distinct and stable.
CameraHandle cameraToken(std::uint32_t index) { return reinterpret_cast<CameraHandle>(0x1000 + 0x10 * index); }
}  // namespace

FakeCamera::FakeCamera(std::vector<FakeCameraInfo> cameras, std::uint32_t width, std::uint32_t height)
    : cameras_(std::move(cameras)), width_(width), height_(height), requestTokens_(256) {
    installDefaults();
}

void FakeCamera::fail(Operation operation, Result code, int onCall) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_[indexOf(operation)] = std::make_pair(code, onCall);
}

void FakeCamera::heal(Operation operation) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_[indexOf(operation)].reset();
}

std::array<int, kOperationCount> FakeCamera::callCounts() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

int FakeCamera::calls(Operation operation) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_[indexOf(operation)];
}

bool FakeCamera::faulted(Operation operation, Result& code) {
    const int call = ++calls_[indexOf(operation)];
    const auto& fault = faults_[indexOf(operation)];
    if (!fault) return false;
    const auto [result, onCall] = *fault;
    if (onCall != 0 && onCall != call) return false;
    code = result;
    return true;
}

bool FakeCamera::completeLocked(std::uint8_t fill, std::int64_t size) {
    if (waiting_.empty()) return false;
    RequestHandle request = waiting_.front();
    waiting_.pop_front();
    const auto bytes = static_cast<std::uint32_t>(size < 0 ? payload() : size);
    std::memset(requestBuffers_[request], fill, std::min(bytes, payload()));
    completedSizes_[request] = bytes;
    completed_.push_back(request);
    return true;
}

int FakeCamera::complete(int count, std::uint8_t fill, std::int64_t size) {
    int done = 0;
    for (; done < count; ++done) {
        CompletionEvent event;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!completeLocked(fill, size)) break;
            event = event_;
        }
        event.completed();
    }
    return done;
}

std::size_t FakeCamera::waiting() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size();
}

std::size_t FakeCamera::completed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return completed_.size();
}

int FakeCamera::openCameras() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return openCameras_;
}

int FakeCamera::openStreams() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return openStreams_;
}

int FakeCamera::liveRequests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(requestBuffers_.size());
}

// Every default action takes the lock, counts the call and answers an injected fault
// before it does what a camera would.
#define FAKE_GUARD(name)                          \
    std::lock_guard<std::mutex> lock(mutex_);     \
    if (Result code = 0; faulted(name, code)) return code

void FakeCamera::installDefaults() {
    ON_CALL(*this, sdkInitialize(_)).WillByDefault(Invoke([this](std::uint32_t) -> Result {
        FAKE_GUARD(Operation::sdkInitialize);
        return 0;
    }));
    ON_CALL(*this, sdkTerminate()).WillByDefault(Invoke([this]() -> Result {
        FAKE_GUARD(Operation::sdkTerminate);
        return 0;
    }));
    ON_CALL(*this, sdkGetCameraCount(_)).WillByDefault(Invoke([this](std::uint32_t* count) -> Result {
        FAKE_GUARD(Operation::sdkGetCameraCount);
        *count = static_cast<std::uint32_t>(cameras_.size());
        return 0;
    }));
    ON_CALL(*this, sdkGetCameraInfo(_, _, _))
        .WillByDefault(Invoke([this](CameraHandle camera, std::uint32_t index, CameraInfoRecord* record) -> Result {
            FAKE_GUARD(Operation::sdkGetCameraInfo);
            if (camera) index = static_cast<std::uint32_t>((reinterpret_cast<std::uintptr_t>(camera) - 0x1000) / 0x10);
            if (index >= cameras_.size()) return 1001;
            record->describe(cameras_[index].vendor, cameras_[index].model, cameras_[index].serial);
            return 0;
        }));
    ON_CALL(*this, sdkOpenCamera(_, _, _, _, _, _))
        .WillByDefault(Invoke([this](std::uint32_t index, CameraHandle* camera, void*, bool, void*, std::uint32_t) -> Result {
            FAKE_GUARD(Operation::sdkOpenCamera);
            if (index >= cameras_.size()) return 1002;
            *camera = cameraToken(index);
            ++openCameras_;
            return 0;
        }));
    ON_CALL(*this, sdkCloseCamera(_)).WillByDefault(Invoke([this](CameraHandle) -> Result {
        FAKE_GUARD(Operation::sdkCloseCamera);
        --openCameras_;
        return 0;
    }));
    ON_CALL(*this, sdkOpenStream(_, _, _, _, _))
        .WillByDefault(Invoke([this](CameraHandle, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream,
                                     std::uint32_t) -> Result {
            FAKE_GUARD(Operation::sdkOpenStream);
            event_ = CompletionEvent(event);
            *payloadSize = payload();
            *stream = &streamToken_;
            ++openStreams_;
            return 0;
        }));
    ON_CALL(*this, sdkCloseStream(_)).WillByDefault(Invoke([this](StreamHandle) -> Result {
        FAKE_GUARD(Operation::sdkCloseStream);
        --openStreams_;
        waiting_.clear();
        completed_.clear();
        return 0;
    }));
    ON_CALL(*this, sdkStartStream(_, _)).WillByDefault(Invoke([this](StreamHandle, std::uint32_t) -> Result {
        FAKE_GUARD(Operation::sdkStartStream);
        return 0;
    }));
    ON_CALL(*this, sdkStopStream(_)).WillByDefault(Invoke([this](StreamHandle) -> Result {
        FAKE_GUARD(Operation::sdkStopStream);
        return 0;
    }));
    ON_CALL(*this, sdkCreateRequest(_, _, _, _))
        .WillByDefault(Invoke([this](StreamHandle, void* buffer, std::uint32_t, RequestHandle* request) -> Result {
            FAKE_GUARD(Operation::sdkCreateRequest);
            RequestHandle handle = &requestTokens_[requestBuffers_.size() % requestTokens_.size()];
            while (requestBuffers_.count(handle)) handle = static_cast<int*>(handle) + 1;
            requestBuffers_[handle] = static_cast<std::uint8_t*>(buffer);
            *request = handle;
            return 0;
        }));
    ON_CALL(*this, sdkReleaseRequest(_, _)).WillByDefault(Invoke([this](StreamHandle, RequestHandle request) -> Result {
        FAKE_GUARD(Operation::sdkReleaseRequest);
        requestBuffers_.erase(request);
        return 0;
    }));
    ON_CALL(*this, sdkEnqueueRequest(_, _)).WillByDefault(Invoke([this](StreamHandle, RequestHandle request) -> Result {
        FAKE_GUARD(Operation::sdkEnqueueRequest);
        if (!requestBuffers_.count(request)) return 1003;
        waiting_.push_back(request);
        return 0;
    }));
    ON_CALL(*this, sdkTakeCompletedRequest(_, _, _, _))
        .WillByDefault(Invoke([this](StreamHandle, RequestHandle* request, std::uint8_t** buffer,
                                     std::uint32_t* size) -> Result {
            FAKE_GUARD(Operation::sdkTakeCompletedRequest);
            if (completed_.empty()) {
                event_.settle(false);
                return SdkResult::NoCompletedRequest;
            }
            *request = completed_.front();
            completed_.pop_front();
            *buffer = requestBuffers_[*request];
            *size = completedSizes_[*request];
            event_.settle(!completed_.empty());
            return 0;
        }));
    ON_CALL(*this, sdkFlushWaitQueue(_)).WillByDefault(Invoke([this](StreamHandle) -> Result {
        FAKE_GUARD(Operation::sdkFlushWaitQueue);
        waiting_.clear();
        return 0;
    }));
    const auto getter = [this](Operation name, std::uint32_t value) {
        return Invoke([this, name, value](CameraHandle, std::uint32_t* out) -> Result {
            FAKE_GUARD(name);
            *out = value;
            return 0;
        });
    };
    ON_CALL(*this, sdkGetSensorWidth(_, _)).WillByDefault(getter(Operation::sdkGetSensorWidth, width_));
    ON_CALL(*this, sdkGetSensorHeight(_, _)).WillByDefault(getter(Operation::sdkGetSensorHeight, height_));
    ON_CALL(*this, sdkGetWidth(_, _)).WillByDefault(getter(Operation::sdkGetWidth, width_));
    ON_CALL(*this, sdkGetHeight(_, _)).WillByDefault(getter(Operation::sdkGetHeight, height_));
    const auto accept = [this](Operation name) {
        return Invoke([this, name](CameraHandle, std::uint32_t) -> Result {
            FAKE_GUARD(name);
            return 0;
        });
    };
    ON_CALL(*this, sdkSetWidth(_, _)).WillByDefault(accept(Operation::sdkSetWidth));
    ON_CALL(*this, sdkSetHeight(_, _)).WillByDefault(accept(Operation::sdkSetHeight));
    ON_CALL(*this, sdkSetTriggerSequence(_, _)).WillByDefault(accept(Operation::sdkSetTriggerSequence));
    ON_CALL(*this, sdkSetTriggerSource(_, _)).WillByDefault(accept(Operation::sdkSetTriggerSource));
    ON_CALL(*this, sdkSetPixelFormat(_, _)).WillByDefault(Invoke([this](CameraHandle, std::uint32_t format) -> Result {
        FAKE_GUARD(Operation::sdkSetPixelFormat);
        pixelFormat = format;
        return 0;
    }));
    ON_CALL(*this, sdkGetTriggerMode(_, _)).WillByDefault(Invoke([this](CameraHandle, bool* on) -> Result {
        FAKE_GUARD(Operation::sdkGetTriggerMode);
        *on = triggerMode;
        return 0;
    }));
    ON_CALL(*this, sdkSetTriggerMode(_, _)).WillByDefault(Invoke([this](CameraHandle, bool on) -> Result {
        FAKE_GUARD(Operation::sdkSetTriggerMode);
        triggerMode = on;
        return 0;
    }));
    ON_CALL(*this, sdkExecuteSoftwareTrigger(_)).WillByDefault(Invoke([this](CameraHandle) -> Result {
        FAKE_GUARD(Operation::sdkExecuteSoftwareTrigger);
        if (completeOnSoftwareTrigger && completeLocked(0x3C, -1)) event_.completed();
        return 0;
    }));
    ON_CALL(*this, sdkGetTriggerActivation(_, _)).WillByDefault(Invoke([this](CameraHandle, std::uint32_t* out) -> Result {
        FAKE_GUARD(Operation::sdkGetTriggerActivation);
        *out = activation;
        return 0;
    }));
    ON_CALL(*this, sdkSetTriggerActivation(_, _)).WillByDefault(Invoke([this](CameraHandle, std::uint32_t value) -> Result {
        FAKE_GUARD(Operation::sdkSetTriggerActivation);
        activation = value;
        return 0;
    }));
    const auto getDouble = [this](Operation name, double FakeCamera::*field) {
        return Invoke([this, name, field](CameraHandle, double* out) -> Result {
            FAKE_GUARD(name);
            *out = this->*field;
            return 0;
        });
    };
    const auto setDouble = [this](Operation name, double FakeCamera::*field) {
        return Invoke([this, name, field](CameraHandle, double value) -> Result {
            FAKE_GUARD(name);
            this->*field = value;
            return 0;
        });
    };
    ON_CALL(*this, sdkGetExposureTime(_, _)).WillByDefault(getDouble(Operation::sdkGetExposureTime, &FakeCamera::exposure));
    ON_CALL(*this, sdkSetExposureTime(_, _)).WillByDefault(setDouble(Operation::sdkSetExposureTime, &FakeCamera::exposure));
    ON_CALL(*this, sdkGetGain(_, _)).WillByDefault(getDouble(Operation::sdkGetGain, &FakeCamera::gain));
    ON_CALL(*this, sdkSetGain(_, _)).WillByDefault(setDouble(Operation::sdkSetGain, &FakeCamera::gain));
    ON_CALL(*this, sdkGetBlackLevel(_, _)).WillByDefault(getDouble(Operation::sdkGetBlackLevel, &FakeCamera::blackLevel));
    ON_CALL(*this, sdkSetBlackLevel(_, _)).WillByDefault(setDouble(Operation::sdkSetBlackLevel, &FakeCamera::blackLevel));
    ON_CALL(*this, sdkGetBalanceRatio(_, _, _))
        .WillByDefault(Invoke([this](CameraHandle, std::uint32_t selector, double* out) -> Result {
            FAKE_GUARD(Operation::sdkGetBalanceRatio);
            *out = selector == 1 ? red : blue;
            return 0;
        }));
    ON_CALL(*this, sdkSetBalanceRatio(_, _, _))
        .WillByDefault(Invoke([this](CameraHandle, std::uint32_t selector, double value) -> Result {
            FAKE_GUARD(Operation::sdkSetBalanceRatio);
            if (balanceStep > 0) value = std::round(value / balanceStep) * balanceStep;
            (selector == 1 ? red : blue) = value;
            return 0;
        }));
}

#undef FAKE_GUARD

}  // namespace Tavri::testing
