#pragma once

#include <gmock/gmock.h>

#include "sdk/TeliSdk.h"

namespace Tavri::testing {

class MockTeliSdk : public TeliSdk {
public:
    MOCK_METHOD(Result, sdkInitialize, (std::uint32_t), (override));
    MOCK_METHOD(Result, sdkTerminate, (), (override));
    MOCK_METHOD(Result, sdkGetCameraCount, (std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkGetCameraInfo, (CameraHandle, std::uint32_t, CameraInfoRecord*), (override));
    MOCK_METHOD(Result, sdkOpenCamera, (std::uint32_t, CameraHandle*, void*, bool, void*, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkCloseCamera, (CameraHandle), (override));
    MOCK_METHOD(Result, sdkOpenStream, (CameraHandle, EventHandle, std::uint32_t*, StreamHandle*, std::uint32_t),
                (override));
    MOCK_METHOD(Result, sdkCloseStream, (StreamHandle), (override));
    MOCK_METHOD(Result, sdkStartStream, (StreamHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkStopStream, (StreamHandle), (override));
    MOCK_METHOD(Result, sdkCreateRequest, (StreamHandle, void*, std::uint32_t, RequestHandle*), (override));
    MOCK_METHOD(Result, sdkReleaseRequest, (StreamHandle, RequestHandle), (override));
    MOCK_METHOD(Result, sdkEnqueueRequest, (StreamHandle, RequestHandle), (override));
    MOCK_METHOD(Result, sdkTakeCompletedRequest, (StreamHandle, RequestHandle*, std::uint8_t**, std::uint32_t*),
                (override));
    MOCK_METHOD(Result, sdkFlushWaitQueue, (StreamHandle), (override));
    MOCK_METHOD(Result, sdkGetSensorWidth, (CameraHandle, std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkGetSensorHeight, (CameraHandle, std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkGetWidth, (CameraHandle, std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkSetWidth, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkGetHeight, (CameraHandle, std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkSetHeight, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkSetPixelFormat, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkGetTriggerMode, (CameraHandle, bool*), (override));
    MOCK_METHOD(Result, sdkSetTriggerMode, (CameraHandle, bool), (override));
    MOCK_METHOD(Result, sdkSetTriggerSequence, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkSetTriggerSource, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkExecuteSoftwareTrigger, (CameraHandle), (override));
    MOCK_METHOD(Result, sdkGetTriggerActivation, (CameraHandle, std::uint32_t*), (override));
    MOCK_METHOD(Result, sdkSetTriggerActivation, (CameraHandle, std::uint32_t), (override));
    MOCK_METHOD(Result, sdkGetExposureTime, (CameraHandle, double*), (override));
    MOCK_METHOD(Result, sdkSetExposureTime, (CameraHandle, double), (override));
    MOCK_METHOD(Result, sdkGetGain, (CameraHandle, double*), (override));
    MOCK_METHOD(Result, sdkSetGain, (CameraHandle, double), (override));
    MOCK_METHOD(Result, sdkGetBlackLevel, (CameraHandle, double*), (override));
    MOCK_METHOD(Result, sdkSetBlackLevel, (CameraHandle, double), (override));
    MOCK_METHOD(Result, sdkGetBalanceRatio, (CameraHandle, std::uint32_t, double*), (override));
    MOCK_METHOD(Result, sdkSetBalanceRatio, (CameraHandle, std::uint32_t, double), (override));
};

}  // namespace Tavri::testing
