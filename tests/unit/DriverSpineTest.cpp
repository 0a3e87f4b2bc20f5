#include <gtest/gtest.h>

#include <cstdlib>
#ifndef _WIN32
#include <dlfcn.h>
#endif

#include "TavriCommon/Exceptions.h"
#include "platform/Platform.h"
#include "platform/PluginLibrary.h"
#include "sdk/Backends.h"
#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::Return;
using ::testing::StrictMock;

struct SdkOverride {
    explicit SdkOverride(TeliSdk& sdk) { overrideSdk(&sdk); }
    ~SdkOverride() { overrideSdk(nullptr); }
};

TEST(EntryPointTest, InitializeAcceptsZeroAndTwoAndReportsOtherCodes) {
    struct Case {
        Result code;
        std::string error;
    };
    const Case cases[] = {{0, ""},
                          {2, ""},
                          {1, "Failed to initialize Toshiba Teli driver. Got return code: 1"},
                          {3, "Failed to initialize Toshiba Teli driver. Got return code: 3"},
                          {4294967295u, "Failed to initialize Toshiba Teli driver. Got return code: 4294967295"}};
    for (const auto& c : cases) {
        StrictMock<MockTeliSdk> sdk;
        SdkOverride active(sdk);
        ScopedRecordingLogger log;
        EXPECT_CALL(sdk, sdkInitialize(65535)).WillOnce(Return(c.code));
        const std::string error = runtimeError([] { initializeDriver(); });
        EXPECT_EQ(error, c.error.empty() ? "<no RuntimeException>" : c.error);
        EXPECT_EQ(log->texts(1), std::vector<std::string>{"Initializing Toshiba Teli driver."});
    }
}

TEST(EntryPointTest, ReleaseNeverThrowsAndCreateMakesNoSdkCall) {
    StrictMock<MockTeliSdk> sdk;
    SdkOverride active(sdk);
    ScopedRecordingLogger log;
    EXPECT_CALL(sdk, sdkTerminate()).WillOnce(Return(77));
    EXPECT_NO_THROW(releaseDriver());

    std::unique_ptr<CameraDriver> camera(createCamera());
    ASSERT_NE(dynamic_cast<TavriCameraToshibaTeli*>(camera.get()), nullptr);
    EXPECT_STREQ(camera->driver(), "toshiba_teli");
    EXPECT_TRUE(camera->isReal());
    camera.reset();  // destroying an unopened camera makes no SDK call either
    EXPECT_EQ(log->texts(1), (std::vector<std::string>{"Releasing Toshiba Teli driver.", "Creating camera"}));
}

TEST(CameraObjectTest, StartsEmptyAndDestructionLeavesAnOpenCameraAlone) {
    StrictMock<MockTeliSdk> sdk;
    {
        DriverProbe camera(sdk);
        EXPECT_FALSE(camera.isInitialized);
        EXPECT_EQ(camera.sequenceLength, 0);
        EXPECT_EQ(camera.sequenceImageTimeout, 500);
        EXPECT_FALSE(camera.softwareTrigger);
        EXPECT_EQ(camera.mode, 2) << "Raw until the first setMode";
        EXPECT_EQ(camera.cameraHandle, nullptr);
        EXPECT_EQ(camera.streamHandle, nullptr);
        EXPECT_EQ(camera.imageEvent, nullptr);
        EXPECT_EQ(camera.requestBuffer, nullptr);
        EXPECT_FALSE(camera.currentImageSet);
        EXPECT_FALSE(camera.sequenceThread.joinable());
        EXPECT_EQ(DriverProbe::STRM_REQUEST_NUM, 120);
        for (RequestHandle request : camera.requests) EXPECT_EQ(request, nullptr);
    }
    // An initialised camera destroyed without release keeps its SDK resources.
    DriverFixture f;
    f.open();
    const int callsBefore = f.sdk.calls(Operation::sdkCloseCamera) + f.sdk.calls(Operation::sdkCloseStream);
    EventHandle event = f.camera->imageEvent;
    std::uint8_t* block = f.camera->requestBuffer;
    f.camera.reset();
    EXPECT_EQ(f.sdk.calls(Operation::sdkCloseCamera) + f.sdk.calls(Operation::sdkCloseStream), callsBefore);
    EXPECT_EQ(f.sdk.openCameras(), 1);
    EXPECT_TRUE(isMapped(block));
    platform::closeEvent(event);  // what the host's release would have given back
    platform::freeBlock(block);
}

// Entry points by name; a backend that is unknown or not built is refused.
void resolveAndStartNoBackend(const platform::PluginLibrary& plugin) {
    const platform::DriverEntryPoints driver(plugin);
    const std::string missing = runtimeError([&] { plugin.entryPoint<void (*)()>("noSuchEntryPoint"); });
    EXPECT_NE(missing.find("plug-in '" TAVRI_PLUGIN_PATH "' has no entry point 'noSuchEntryPoint'"), std::string::npos)
        << missing;

    struct Case {
        const char* backend;
        std::string error;
    };
    for (const Case& c : {Case{"bogus", "Unknown camera SDK backend 'bogus'"},
#ifndef TAVRI_HAVE_TELI_BACKEND
                          Case{"teli", "Camera SDK backend 'teli' is not built into this driver"}
#endif
         }) {
        ::setenv("TAVRI_TELI_SDK", c.backend, 1);
        const std::string message = runtimeError([&] { driver.initializeDriver(); });
        EXPECT_NE(message.find(c.error), std::string::npos) << message;
    }
    ::unsetenv("TAVRI_TELI_SDK");
    driver.releaseDriver();  // no backend was started: nothing to stop, nothing thrown
}

// The plug-in as the platform loads it: by path, entry points by name; and unloaded
// when the host lets it go, so that a host can load it again with another backend
// (an object the plug-in alone defines as unique would pin it in memory for good).
TEST(PluginLoaderTest, ResolvesEntryPointsAndReportsAMissingBackend) {
    {
        const platform::PluginLibrary plugin(TAVRI_PLUGIN_PATH);
        resolveAndStartNoBackend(plugin);
    }
#ifndef _WIN32
    EXPECT_EQ(dlopen(TAVRI_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the plug-in stayed loaded";
#endif
}

}  // namespace
}  // namespace Tavri::testing
