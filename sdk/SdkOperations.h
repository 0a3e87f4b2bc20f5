#pragma once
// The 37 operations of the camera SDK, listed once: ordinal in the vendor DLL, name,
// parameters (with their names) and the arguments that pass them on. Everything that
// goes by operation is made from this list: the ordinal table and the Operation enum
// below, the Windows binding (sdk/teli/OrdinalSdk.cpp), the stand-in DLL's exports and
// its .def (sdk/teli/standin). sdk/TeliSdk.h spells the interface out for readers and
// is checked against the list at compile time. Fault injection and call counts are
// keyed by Operation; names appear only at the edges (rig files, test output).
//
// X(ordinal, name, (parameters), (arguments)). The .def file is made by CMake from
// the lines below, one operation per line.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// clang-format off
#define TAVRI_SDK_OPERATIONS(X) \
    X(1, sdkInitialize, (std::uint32_t reserved), (reserved)) \
    X(2, sdkTerminate, (), ()) \
    X(4, sdkGetCameraCount, (std::uint32_t* count), (count)) \
    X(5, sdkGetCameraInfo, (CameraHandle camera, std::uint32_t index, CameraInfoRecord* info), (camera, index, info)) \
    X(6, sdkOpenCamera, (std::uint32_t index, CameraHandle* camera, void* reserved1, bool exclusive, void* reserved2, std::uint32_t mode), (index, camera, reserved1, exclusive, reserved2, mode)) \
    X(8, sdkCloseCamera, (CameraHandle camera), (camera)) \
    X(21, sdkOpenStream, (CameraHandle camera, EventHandle event, std::uint32_t* payloadSize, StreamHandle* stream, std::uint32_t reserved), (camera, event, payloadSize, stream, reserved)) \
    X(22, sdkCloseStream, (StreamHandle stream), (stream)) \
    X(23, sdkStartStream, (StreamHandle stream, std::uint32_t mode), (stream, mode)) \
    X(24, sdkStopStream, (StreamHandle stream), (stream)) \
    X(27, sdkCreateRequest, (StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request), (stream, buffer, size, request)) \
    X(28, sdkReleaseRequest, (StreamHandle stream, RequestHandle request), (stream, request)) \
    X(29, sdkEnqueueRequest, (StreamHandle stream, RequestHandle request), (stream, request)) \
    X(30, sdkTakeCompletedRequest, (StreamHandle stream, RequestHandle* request, std::uint8_t** buffer, std::uint32_t* size), (stream, request, buffer, size)) \
    X(31, sdkFlushWaitQueue, (StreamHandle stream), (stream)) \
    X(121, sdkGetSensorWidth, (CameraHandle camera, std::uint32_t* width), (camera, width)) \
    X(122, sdkGetSensorHeight, (CameraHandle camera, std::uint32_t* height), (camera, height)) \
    X(126, sdkGetWidth, (CameraHandle camera, std::uint32_t* width), (camera, width)) \
    X(127, sdkSetWidth, (CameraHandle camera, std::uint32_t width), (camera, width)) \
    X(129, sdkGetHeight, (CameraHandle camera, std::uint32_t* height), (camera, height)) \
    X(130, sdkSetHeight, (CameraHandle camera, std::uint32_t height), (camera, height)) \
    X(176, sdkSetPixelFormat, (CameraHandle camera, std::uint32_t format), (camera, format)) \
    X(221, sdkGetTriggerMode, (CameraHandle camera, bool* on), (camera, on)) \
    X(222, sdkSetTriggerMode, (CameraHandle camera, bool on), (camera, on)) \
    X(224, sdkSetTriggerSequence, (CameraHandle camera, std::uint32_t sequence), (camera, sequence)) \
    X(226, sdkSetTriggerSource, (CameraHandle camera, std::uint32_t source), (camera, source)) \
    X(233, sdkExecuteSoftwareTrigger, (CameraHandle camera), (camera)) \
    X(234, sdkGetTriggerActivation, (CameraHandle camera, std::uint32_t* activation), (camera, activation)) \
    X(235, sdkSetTriggerActivation, (CameraHandle camera, std::uint32_t activation), (camera, activation)) \
    X(244, sdkGetExposureTime, (CameraHandle camera, double* value), (camera, value)) \
    X(245, sdkSetExposureTime, (CameraHandle camera, double value), (camera, value)) \
    X(282, sdkGetGain, (CameraHandle camera, double* value), (camera, value)) \
    X(283, sdkSetGain, (CameraHandle camera, double value), (camera, value)) \
    X(292, sdkGetBlackLevel, (CameraHandle camera, double* value), (camera, value)) \
    X(293, sdkSetBlackLevel, (CameraHandle camera, double value), (camera, value)) \
    X(312, sdkGetBalanceRatio, (CameraHandle camera, std::uint32_t selector, double* value), (camera, selector, value)) \
    X(313, sdkSetBalanceRatio, (CameraHandle camera, std::uint32_t selector, double value), (camera, selector, value))                                                                            
// clang-format on

// Inside a class derived from TeliSdk: declares the 37 operations as overrides.
#define TAVRI_SDK_DECLARE_OVERRIDE(ordinal, name, parameters, arguments) Result name parameters override;
#define TAVRI_SDK_OVERRIDES TAVRI_SDK_OPERATIONS(TAVRI_SDK_DECLARE_OVERRIDE)

namespace Tavri {

enum class Operation : std::uint8_t {
#define TAVRI_OPERATION_ENUM(ordinal, name, parameters, arguments) name,
    TAVRI_SDK_OPERATIONS(TAVRI_OPERATION_ENUM)
#undef TAVRI_OPERATION_ENUM
};

struct SdkOrdinal {
    std::uint16_t ordinal;
    const char* name;
};

// The vendor library's exports the driver binds, by ordinal alone, in the order of
// the Operation enum.
constexpr std::array kSdkOrdinals{
#define TAVRI_OPERATION_ORDINAL(ordinal, name, parameters, arguments) SdkOrdinal{ordinal, #name},
    TAVRI_SDK_OPERATIONS(TAVRI_OPERATION_ORDINAL)
#undef TAVRI_OPERATION_ORDINAL
};

constexpr std::size_t kOperationCount = kSdkOrdinals.size();
static_assert(kOperationCount == 37, "the SDK has 37 operations");

constexpr std::size_t indexOf(Operation operation) { return static_cast<std::size_t>(operation); }
constexpr const char* nameOf(Operation operation) { return kSdkOrdinals[indexOf(operation)].name; }
constexpr std::uint16_t ordinalOf(Operation operation) { return kSdkOrdinals[indexOf(operation)].ordinal; }

// The operation of that name ("sdkOpenCamera"), or none: for the edges that read names.
constexpr std::optional<Operation> operationNamed(std::string_view name) {
    for (std::size_t i = 0; i < kOperationCount; ++i)
        if (name == kSdkOrdinals[i].name) return static_cast<Operation>(i);
    return std::nullopt;
}

}  // namespace Tavri
