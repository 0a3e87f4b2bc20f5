// The vendor DLL binding, run against the stand-in TeliCamApi64.dll: every operation
// must reach the export of its own ordinal with its arguments intact. The reference
// is the same simulated rig called in process: any call that answers differently
// through the DLL was bound to the wrong ordinal or passed its arguments wrongly.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TavriCommon/Exceptions.h"
#include "platform/Platform.h"
#include "sdk/Backends.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri {
namespace {

// One answer of a query: its result code and what it wrote, as text.
std::string answer(Result result, const std::string& written) {
    return std::to_string(result) + ": " + written;
}
template <typename T>
std::string text(const T& value) {
    std::ostringstream out;
    out.precision(17);
    out << value;
    return out.str();
}

// Calls a getter into a preset value, then reports both; the preset shows a getter
// that reports success without writing.
template <typename T, typename Getter>
std::string read(T preset, Getter getter) {
    T value = preset;
    const Result result = getter(&value);
    return answer(result, text(value));
}

struct Query {
    const char* name;
    std::function<std::string(TeliSdk&, CameraHandle)> ask;
};

const std::vector<Query>& queries() {
    static const std::vector<Query> all{
        {"sdkGetCameraInfo", [](TeliSdk& sdk, CameraHandle camera) {
             CameraInfoRecord record;
             record.clear();
             const Result result = sdk.sdkGetCameraInfo(camera, 1, &record);
             return answer(result, record.firstText() + "|" + record.secondText() + "|" + record.serialNumber());
         }},
        {"sdkGetSensorWidth", [](TeliSdk& sdk, CameraHandle camera) {
             return read<std::uint32_t>(7, [&](auto* v) { return sdk.sdkGetSensorWidth(camera, v); });
         }},
        {"sdkGetSensorHeight", [](TeliSdk& sdk, CameraHandle camera) {
             return read<std::uint32_t>(7, [&](auto* v) { return sdk.sdkGetSensorHeight(camera, v); });
         }},
        {"sdkGetWidth", [](TeliSdk& sdk, CameraHandle camera) {
             return read<std::uint32_t>(7, [&](auto* v) { return sdk.sdkGetWidth(camera, v); });
         }},
        {"sdkGetHeight", [](TeliSdk& sdk, CameraHandle camera) {
             return read<std::uint32_t>(7, [&](auto* v) { return sdk.sdkGetHeight(camera, v); });
         }},
        {"sdkGetTriggerMode", [](TeliSdk& sdk, CameraHandle camera) {
             return read<bool>(false, [&](auto* v) { return sdk.sdkGetTriggerMode(camera, v); });
         }},
        {"sdkGetTriggerActivation", [](TeliSdk& sdk, CameraHandle camera) {
             return read<std::uint32_t>(7, [&](auto* v) { return sdk.sdkGetTriggerActivation(camera, v); });
         }},
        {"sdkGetExposureTime", [](TeliSdk& sdk, CameraHandle camera) {
             return read<double>(-1.0, [&](auto* v) { return sdk.sdkGetExposureTime(camera, v); });
         }},
        {"sdkGetGain", [](TeliSdk& sdk, CameraHandle camera) {
             return read<double>(-1.0, [&](auto* v) { return sdk.sdkGetGain(camera, v); });
         }},
        {"sdkGetBlackLevel", [](TeliSdk& sdk, CameraHandle camera) {
             return read<double>(-1.0, [&](auto* v) { return sdk.sdkGetBlackLevel(camera, v); });
         }},
        {"sdkGetBalanceRatio red", [](TeliSdk& sdk, CameraHandle camera) {
             return read<double>(-1.0, [&](auto* v) { return sdk.sdkGetBalanceRatio(camera, BalanceSelector::Red, v); });
         }},
        {"sdkGetBalanceRatio blue", [](TeliSdk& sdk, CameraHandle camera) {
             return read<double>(-1.0, [&](auto* v) { return sdk.sdkGetBalanceRatio(camera, BalanceSelector::Blue, v); });
         }},
    };
    return all;
}

struct Setter {
    const char* name;
    std::function<Result(TeliSdk&, CameraHandle)> apply;
};

// Values off the rig's grids and a few the rig refuses, so that rounding, refusal
// codes and every argument position show up in the read-back.
const std::vector<Setter>& setters() {
    static const std::vector<Setter> all{
        {"exposure 12345.4", [](TeliSdk& s, CameraHandle c) { return s.sdkSetExposureTime(c, 12345.4); }},
        {"exposure NaN", [](TeliSdk& s, CameraHandle c) {
             return s.sdkSetExposureTime(c, std::numeric_limits<double>::quiet_NaN());
         }},
        {"gain 3.14", [](TeliSdk& s, CameraHandle c) { return s.sdkSetGain(c, 3.14); }},
        {"black level 10.3", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBlackLevel(c, 10.3); }},
        {"red 1.9", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBalanceRatio(c, BalanceSelector::Red, 1.9); }},
        {"blue 1.3", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBalanceRatio(c, BalanceSelector::Blue, 1.3); }},
        {"selector 3", [](TeliSdk& s, CameraHandle c) { return s.sdkSetBalanceRatio(c, 3, 1.0); }},
        {"trigger mode off", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerMode(c, false); }},
        {"trigger mode on", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerMode(c, true); }},
        {"activation rising", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerActivation(c, 1); }},
        {"activation 5", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerActivation(c, 5); }},
        {"trigger sequence 9", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSequence(c, 9); }},
        {"trigger source 64", [](TeliSdk& s, CameraHandle c) { return s.sdkSetTriggerSource(c, 64); }},
        {"width 640", [](TeliSdk& s, CameraHandle c) { return s.sdkSetWidth(c, 640); }},
        {"width 641", [](TeliSdk& s, CameraHandle c) { return s.sdkSetWidth(c, 641); }},
        {"height 480", [](TeliSdk& s, CameraHandle c) { return s.sdkSetHeight(c, 480); }},
        {"pixel format RGB8", [](TeliSdk& s, CameraHandle c) { return s.sdkSetPixelFormat(c, PixelFormat::RGB8); }},
        {"pixel format 0", [](TeliSdk& s, CameraHandle c) { return s.sdkSetPixelFormat(c, 0); }},
    };
    return all;
}

// The binding over the stand-in DLL beside the same rig in process, each with one
// camera open.
class OrdinalBinding : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NO_THROW(dll = teli::makeSdk());
        inProcess = sim::makeSdk();
        for (TeliSdk* sdk : {dll.get(), inProcess.get()}) {
            ASSERT_EQ(sdk->sdkInitialize(65535), 0u);
        }
    }
    void TearDown() override {
        for (auto& [sdk, camera] : {std::pair{dll.get(), dllCamera}, std::pair{inProcess.get(), simCamera}}) {
            if (!sdk) continue;
            if (camera) {
                EXPECT_EQ(sdk->sdkCloseCamera(camera), 0u);
            }
            EXPECT_EQ(sdk->sdkTerminate(), 0u);
        }
    }
    void open(std::uint32_t index) {
        ASSERT_EQ(dll->sdkOpenCamera(index, &dllCamera, nullptr, true, nullptr, 1), 0u);
        ASSERT_EQ(inProcess->sdkOpenCamera(index, &simCamera, nullptr, true, nullptr, 1), 0u);
        ASSERT_NE(dllCamera, nullptr);
    }
    void expectSameAnswers(const std::string& when) {
        for (const Query& query : queries()) {
            EXPECT_EQ(query.ask(*dll, dllCamera), query.ask(*inProcess, simCamera)) << query.name << " " << when;
        }
    }

    std::unique_ptr<TeliSdk> dll;
    std::unique_ptr<TeliSdk> inProcess;
    CameraHandle dllCamera = nullptr;
    CameraHandle simCamera = nullptr;
};

TEST_F(OrdinalBinding, EnumeratesAsTheRigInProcess) {
    std::uint32_t dllCount = 0, simCount = 0;
    ASSERT_EQ(dll->sdkGetCameraCount(&dllCount), 0u);
    ASSERT_EQ(inProcess->sdkGetCameraCount(&simCount), 0u);
    ASSERT_EQ(dllCount, simCount);
    ASSERT_GE(dllCount, 2u);
    for (std::uint32_t i = 0; i <= dllCount; ++i) {  // one past the end: the refusal too
        CameraInfoRecord fromDll, fromSim;
        fromDll.clear();
        fromSim.clear();
        EXPECT_EQ(dll->sdkGetCameraInfo(nullptr, i, &fromDll), inProcess->sdkGetCameraInfo(nullptr, i, &fromSim));
        EXPECT_EQ(std::memcmp(fromDll.bytes, fromSim.bytes, CameraInfoRecord::Size), 0) << "record of camera " << i;
    }
}

TEST_F(OrdinalBinding, SettersAndQueriesAnswerAsTheRigInProcess) {
    open(1);
    // The rig's own value first: answers that agree only because neither side wrote
    // anything would prove nothing.
    EXPECT_EQ(read<std::uint32_t>(0, [&](auto* v) { return dll->sdkGetSensorWidth(dllCamera, v); }),
              answer(SdkResult::Success, text(sim::rigFromEnvironment().cameras.at(1).width)));
    expectSameAnswers("after open");
    for (const Setter& setter : setters()) {
        EXPECT_EQ(setter.apply(*dll, dllCamera), setter.apply(*inProcess, simCamera)) << setter.name;
        expectSameAnswers(std::string("after ") + setter.name);
    }
}

TEST_F(OrdinalBinding, SoftwareTriggeredFrameCompletesIntoItsRequest) {
    open(0);
    ASSERT_EQ(dll->sdkSetTriggerSource(dllCamera, TriggerSourceCode::Software), 0u);
    std::uint32_t width = 0, height = 0;
    ASSERT_EQ(dll->sdkGetWidth(dllCamera, &width), 0u);
    ASSERT_EQ(dll->sdkGetHeight(dllCamera, &height), 0u);
    ASSERT_EQ(dll->sdkSetPixelFormat(dllCamera, PixelFormat::Mono8), 0u);

    const platform::EventHandle event = platform::createEvent();
    ASSERT_NE(event, nullptr);
    std::uint32_t payload = 0;
    StreamHandle stream = nullptr;
    ASSERT_EQ(dll->sdkOpenStream(dllCamera, event, &payload, &stream, 0), 0u);
    ASSERT_GE(payload, width * height * 3) << "room for the widest pixel format";
    auto* block = static_cast<std::uint8_t*>(platform::allocateBlock(2 * payload));
    ASSERT_NE(block, nullptr);
    RequestHandle requests[2] = {};
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(dll->sdkCreateRequest(stream, block + i * payload, payload, &requests[i]), 0u);
        ASSERT_EQ(dll->sdkEnqueueRequest(stream, requests[i]), 0u);
    }
    ASSERT_EQ(dll->sdkStartStream(stream, 8), 0u);
    ASSERT_EQ(dll->sdkExecuteSoftwareTrigger(dllCamera), 0u);
    ASSERT_EQ(platform::waitForEvent(event, 10000), 0u) << "the stand-in signals the driver's event";

    RequestHandle taken = nullptr;
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(dll->sdkTakeCompletedRequest(stream, &taken, &buffer, &size), 0u);
    EXPECT_EQ(taken, requests[0]);
    EXPECT_EQ(buffer, block) << "the frame lands in the request's own buffer";
    EXPECT_EQ(size, width * height);
    sim::FrameStamp stamp;
    ASSERT_TRUE(sim::readStamp(buffer, width, height, PixelFormat::Mono8, &stamp));
    EXPECT_EQ(stamp.frame, 0u);
    EXPECT_EQ(stamp.pattern, sim::kNoPattern) << "software-triggered, not a projector frame";
    EXPECT_EQ(dll->sdkTakeCompletedRequest(stream, &taken, &buffer, &size), SdkResult::NoCompletedRequest);

    EXPECT_EQ(dll->sdkStopStream(stream), 0u);
    EXPECT_EQ(dll->sdkFlushWaitQueue(stream), 0u);
    for (RequestHandle request : requests) {
        EXPECT_EQ(dll->sdkReleaseRequest(stream, request), 0u);
    }
    EXPECT_EQ(dll->sdkCloseStream(stream), 0u);
    platform::freeBlock(block);
    platform::closeEvent(event);
}

// These two run in processes of their own (see CMakeLists.txt): a DLL once loaded
// stays loaded under its name.
TEST(VendorLibraryMissing, NamesTheDll) {
    try {
        teli::makeSdk();
        FAIL() << "bound a TeliCamApi64.dll that is not there";
    } catch (const RuntimeException& e) {
        EXPECT_STREQ(e.what(), "Failed to load the camera SDK TeliCamApi64.dll (Windows error 126)");
    }
}

TEST(VendorLibraryIncomplete, NamesTheMissingOrdinal) {
    try {
        teli::makeSdk();
        FAIL() << "bound a TeliCamApi64.dll without ordinal 233";
    } catch (const RuntimeException& e) {
        EXPECT_STREQ(e.what(), "TeliCamApi64.dll lacks ordinal 233 (sdkExecuteSoftwareTrigger)");
    }
}

}  // namespace
}  // namespace Tavri
