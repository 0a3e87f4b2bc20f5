#pragma once
// The camera SDK as the driver sees it: 37 flat operations on opaque handles that
// return 32-bit result codes. Every backend (vendor DLL, Aravis, simulator, mock)
// implements this one interface; the driver never knows which one it talks to.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "sdk/SdkOperations.h"
#include "sdk/SdkResult.h"

namespace Tavri {

using CameraHandle = void*;
using StreamHandle = void*;
using RequestHandle = void*;
using EventHandle = void*;

// GenICam PFNC codes of the three formats the driver selects.
namespace PixelFormat {
constexpr std::uint32_t Mono8 = 0x01080001;
constexpr std::uint32_t RGB8 = 0x02180014;
constexpr std::uint32_t BayerBG8 = 0x0108000B;
}  // namespace PixelFormat

namespace TriggerSourceCode {
constexpr std::uint32_t Hardware = 0;
constexpr std::uint32_t Software = 64;
}  // namespace TriggerSourceCode

namespace BalanceSelector {
constexpr std::uint32_t Red = 1;
constexpr std::uint32_t Blue = 2;
}  // namespace BalanceSelector

// The SDK's camera information record. Only three text fields are read; each is
// read up to its terminator or the record's end, never beyond.
struct CameraInfoRecord {
    static constexpr std::size_t Size = 2044;
    static constexpr std::size_t FirstTextOffset = 4;
    static constexpr std::size_t SecondTextOffset = 68;
    static constexpr std::size_t TextFieldSize = 64;
    static constexpr std::size_t SerialOffset = 132;

    unsigned char bytes[Size];

    void clear() { std::memset(bytes, 0, Size); }
    std::string firstText() const { return textAt(FirstTextOffset); }
    std::string secondText() const { return textAt(SecondTextOffset); }
    std::string serialNumber() const { return textAt(SerialOffset); }

    // What a backend writes for one camera. Each text is cut to the room its field has
    // (the serial number runs to the record's end) and always ends in a terminator.
    void describe(const std::string& vendor, const std::string& model, const std::string& serial) {
        setText(FirstTextOffset, TextFieldSize, vendor);
        setText(SecondTextOffset, TextFieldSize, model);
        setText(SerialOffset, Size - SerialOffset, serial);
    }

private:
    void setText(std::size_t offset, std::size_t room, const std::string& text) {
        const std::size_t n = text.size() < room - 1 ? text.size() : room - 1;
        std::memcpy(bytes + offset, text.data(), n);
        bytes[offset + n] = 0;
    }

    std::string textAt(std::size_t offset) const {
        const auto* begin = reinterpret_cast<const char*>(bytes) + offset;
        const auto* found = static_cast<const char*>(std::memchr(begin, 0, Size - offset));
        return std::string(begin, found ? found : begin + (Size - offset));
    }
};
static_assert(sizeof(CameraInfoRecord) == CameraInfoRecord::Size, "record size");

class TeliSdk {
public:
    virtual ~TeliSdk() = default;

    // System
    virtual Result sdkInitialize(std::uint32_t reserved) = 0;
    virtual Result sdkTerminate() = 0;
    // Enumeration, open and close
    virtual Result sdkGetCameraCount(std::uint32_t* count) = 0;
    virtual Result sdkGetCameraInfo(CameraHandle camera, std::uint32_t index, CameraInfoRecord* info) = 0;
    virtual Result sdkOpenCamera(std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive,
                                 void* reserved2, std::uint32_t mode) = 0;
    virtual Result sdkCloseCamera(CameraHandle camera) = 0;
    // Stream and request queue
    virtual Result sdkOpenStream(CameraHandle camera, EventHandle event, std::uint32_t* payloadSize,
                                 StreamHandle* stream, std::uint32_t reserved) = 0;
    virtual Result sdkCloseStream(StreamHandle stream) = 0;
    virtual Result sdkStartStream(StreamHandle stream, std::uint32_t mode) = 0;
    virtual Result sdkStopStream(StreamHandle stream) = 0;
    virtual Result sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size,
                                    RequestHandle* request) = 0;
    virtual Result sdkReleaseRequest(StreamHandle stream, RequestHandle request) = 0;
    virtual Result sdkEnqueueRequest(StreamHandle stream, RequestHandle request) = 0;
    // The failed-take rule: a take that hands back a failed frame (any code other than
    // Success and NoCompletedRequest) while the stream acquires leaves the request on
    // the stream's wait queue: the backend re-queues it itself, and the caller must not
    // enqueue it again. The pool of requests thus stays whole however many frames fail
    // (lost packets, oversize frames). On a stopped stream the request is handed back
    // to the caller, as after a successful take.
    virtual Result sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                           std::uint32_t* size) = 0;
    virtual Result sdkFlushWaitQueue(StreamHandle stream) = 0;
    // Image geometry and pixel format
    virtual Result sdkGetSensorWidth(CameraHandle camera, std::uint32_t* width) = 0;
    virtual Result sdkGetSensorHeight(CameraHandle camera, std::uint32_t* height) = 0;
    virtual Result sdkGetWidth(CameraHandle camera, std::uint32_t* width) = 0;
    virtual Result sdkSetWidth(CameraHandle camera, std::uint32_t width) = 0;
    virtual Result sdkGetHeight(CameraHandle camera, std::uint32_t* height) = 0;
    virtual Result sdkSetHeight(CameraHandle camera, std::uint32_t height) = 0;
    virtual Result sdkSetPixelFormat(CameraHandle camera, std::uint32_t format) = 0;
    // Trigger
    virtual Result sdkGetTriggerMode(CameraHandle camera, bool* on) = 0;
    virtual Result sdkSetTriggerMode(CameraHandle camera, bool on) = 0;
    virtual Result sdkSetTriggerSequence(CameraHandle camera, std::uint32_t sequence) = 0;
    virtual Result sdkSetTriggerSource(CameraHandle camera, std::uint32_t source) = 0;
    virtual Result sdkExecuteSoftwareTrigger(CameraHandle camera) = 0;
    virtual Result sdkGetTriggerActivation(CameraHandle camera, std::uint32_t* activation) = 0;
    virtual Result sdkSetTriggerActivation(CameraHandle camera, std::uint32_t activation) = 0;
    // Exposure, gain, black level and white balance
    virtual Result sdkGetExposureTime(CameraHandle camera, double* value) = 0;
    virtual Result sdkSetExposureTime(CameraHandle camera, double value) = 0;
    virtual Result sdkGetGain(CameraHandle camera, double* value) = 0;
    virtual Result sdkSetGain(CameraHandle camera, double value) = 0;
    virtual Result sdkGetBlackLevel(CameraHandle camera, double* value) = 0;
    virtual Result sdkSetBlackLevel(CameraHandle camera, double value) = 0;
    virtual Result sdkGetBalanceRatio(CameraHandle camera, std::uint32_t selector, double* value) = 0;
    virtual Result sdkSetBalanceRatio(CameraHandle camera, std::uint32_t selector, double value) = 0;
};

// The interface above, checked against the one list of operations: every member has
// the parameter types the list gives it.
#define TAVRI_CHECK_OPERATION(ordinal, name, parameters, arguments)                              \
    static_assert(std::is_same_v<decltype(&TeliSdk::name), Result(TeliSdk::*) parameters>,     \
                  #name " differs from sdk/SdkOperations.h");
TAVRI_SDK_OPERATIONS(TAVRI_CHECK_OPERATION)
#undef TAVRI_CHECK_OPERATION

// The process-wide backend chosen by selectSdk(); throws RuntimeException before one
// was selected.
TeliSdk& activeSdk();

// Chooses the backend named by TAVRI_TELI_SDK (teli, aravis, sim; default teli on
// Windows, aravis elsewhere). A backend that is unknown or not built into this driver
// throws RuntimeException naming it: there is no fallback.
TeliSdk& selectSdk();

}  // namespace Tavri
