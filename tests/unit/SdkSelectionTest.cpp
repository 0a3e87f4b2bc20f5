#include <gtest/gtest.h>

#include <cstdlib>

#include "sdk/Backends.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::Return;
using ::testing::StrictMock;

// An override stands in front of the environment's backend; removing it (as a test or
// host does before freeing its backend) brings that backend back, so releaseDriver
// never reaches the freed one.
TEST(SdkSelectionTest, RemovingAnOverrideBringsBackTheEnvironmentsBackend) {
    const char* before = std::getenv("TAVRI_TELI_SDK");
    const std::string saved = before ? before : "";
    ::setenv("TAVRI_TELI_SDK", "sim", 1);
    ScopedRecordingLogger log;
    TeliSdk& chosen = selectSdk();
    {
        StrictMock<MockTeliSdk> sdk;
        overrideSdk(&sdk);
        EXPECT_EQ(&selectSdk(), &sdk);
        EXPECT_EQ(&activeSdk(), &sdk);
        EXPECT_CALL(sdk, sdkInitialize(65535)).WillOnce(Return(0));
        initializeDriver();
        overrideSdk(nullptr);
    }
    EXPECT_EQ(&activeSdk(), &chosen);
    EXPECT_EQ(&selectSdk(), &chosen);
    releaseDriver();
    if (before)
        ::setenv("TAVRI_TELI_SDK", saved.c_str(), 1);
    else
        ::unsetenv("TAVRI_TELI_SDK");
}

}  // namespace
}  // namespace Tavri::testing
