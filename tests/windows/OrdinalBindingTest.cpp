// The vendor DLL binding, run against the stand-in TeliCamApi64.dll: every operation
// must reach the export of its own ordinal with its arguments intact. The reference
// is the same simulated rig called in process: any call that answers differently
// through the DLL was bound to the wrong ordinal or passed its arguments wrongly.
// The stream operations are driven through the plug-in in PluginHostTest.cpp.

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sdk/Backends.h"
#include "sdk/sim/SimSdk.h"

namespace Tavri {
namespace {

// Everything a camera reports, one line per query: the result code and the value
// written. Each value starts preset, which shows a getter that reports success
// without writing.
std::string snapshot(TeliSdk& sdk, CameraHandle camera) {
    std::ostringstream out;
    out.precision(17);
    const auto line = [&](const char* query, Result result, const auto& value) {
        out << query << " " << result << ": " << value << "\n";
    };
    std::uint32_t count = 99, sensorWidth = 7, sensorHeight = 7, width = 7, height = 7, activation = 7;
    bool triggerMode = false;
    double exposure = -1, gain = -1, blackLevel = -1, red = -1, blue = -1;
    line("sdkGetCameraCount", sdk.sdkGetCameraCount(&count), count);
    // Every record of the rig's two cameras and the refusal one past them, without and
    // with an open camera; the hash covers the bytes no field names.
    for (CameraHandle handle : {CameraHandle{}, camera})
        for (std::uint32_t index = 0; index < 3; ++index) {
            CameraInfoRecord record;
            record.clear();
            const Result result = sdk.sdkGetCameraInfo(handle, index, &record);
            const std::string bytes(reinterpret_cast<const char*>(record.bytes), CameraInfoRecord::Size);
            line("sdkGetCameraInfo", result,
                 record.firstText() + "|" + record.secondText() + "|" + record.serialNumber() + "|" +
                     std::to_string(std::hash<std::string>{}(bytes)));
        }
    line("sdkGetSensorWidth", sdk.sdkGetSensorWidth(camera, &sensorWidth), sensorWidth);
    line("sdkGetSensorHeight", sdk.sdkGetSensorHeight(camera, &sensorHeight), sensorHeight);
    line("sdkGetWidth", sdk.sdkGetWidth(camera, &width), width);
    line("sdkGetHeight", sdk.sdkGetHeight(camera, &height), height);
    line("sdkGetTriggerMode", sdk.sdkGetTriggerMode(camera, &triggerMode), triggerMode);
    line("sdkGetTriggerActivation", sdk.sdkGetTriggerActivation(camera, &activation), activation);
    line("sdkGetExposureTime", sdk.sdkGetExposureTime(camera, &exposure), exposure);
    line("sdkGetGain", sdk.sdkGetGain(camera, &gain), gain);
    line("sdkGetBlackLevel", sdk.sdkGetBlackLevel(camera, &blackLevel), blackLevel);
    line("sdkGetBalanceRatio red", sdk.sdkGetBalanceRatio(camera, BalanceSelector::Red, &red), red);
    line("sdkGetBalanceRatio blue", sdk.sdkGetBalanceRatio(camera, BalanceSelector::Blue, &blue), blue);
    return out.str();
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

// The binding over the stand-in DLL beside the same rig in process, each with the
// rig's second camera open.
class OrdinalBinding : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NO_THROW(dll = teli::makeSdk());
        inProcess = sim::makeSdk();
        for (TeliSdk* sdk : {dll.get(), inProcess.get()}) ASSERT_EQ(sdk->sdkInitialize(65535), 0u);
        ASSERT_EQ(dll->sdkOpenCamera(1, &dllCamera, nullptr, true, nullptr, 1), 0u);
        ASSERT_EQ(inProcess->sdkOpenCamera(1, &simCamera, nullptr, true, nullptr, 1), 0u);
        ASSERT_NE(dllCamera, nullptr);
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
    void expectSameAnswers(const std::string& when) {
        EXPECT_EQ(snapshot(*dll, dllCamera), snapshot(*inProcess, simCamera)) << when;
    }

    std::unique_ptr<TeliSdk> dll;
    std::unique_ptr<TeliSdk> inProcess;
    CameraHandle dllCamera = nullptr;
    CameraHandle simCamera = nullptr;
};

TEST_F(OrdinalBinding, SettersAndQueriesAnswerAsTheRigInProcess) {
    // The rig's own value first: answers that agree only because neither side wrote
    // anything would prove nothing.
    const std::string sensorWidth =
        "sdkGetSensorWidth 0: " + std::to_string(sim::rigFromEnvironment().cameras.at(1).width);
    EXPECT_NE(snapshot(*dll, dllCamera).find(sensorWidth + "\n"), std::string::npos) << sensorWidth;
    expectSameAnswers("after open");
    for (const Setter& setter : setters()) {
        EXPECT_EQ(setter.apply(*dll, dllCamera), setter.apply(*inProcess, simCamera)) << setter.name;
        expectSameAnswers(std::string("after ") + setter.name);
    }
}

}  // namespace
}  // namespace Tavri
