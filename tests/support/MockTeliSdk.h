#pragma once
// A GoogleMock TeliSdk: one mocked method per operation of sdk/SdkOperations.h.

#include <gmock/gmock.h>

#include "sdk/TeliSdk.h"

namespace Tavri::testing {

class MockTeliSdk : public TeliSdk {
public:
#define TAVRI_MOCK_OPERATION(ordinal, name, parameters, arguments) MOCK_METHOD(Result, name, parameters, (override));
    TAVRI_SDK_OPERATIONS(TAVRI_MOCK_OPERATION)
#undef TAVRI_MOCK_OPERATION
};

}  // namespace Tavri::testing
