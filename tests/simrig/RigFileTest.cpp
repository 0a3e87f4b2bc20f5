// The rig file: its errors name the file and the position, hostile files are refused
// at once, and the environment names the file whose faults then apply.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "RigFixture.h"
#include "TavriCommon/Exceptions.h"
#include "sdk/sim/SimRig.h"

namespace Tavri::sim::test {
namespace {

using namespace SimResult;

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

std::string loadError(const std::string& path) {
    try {
        loadRigFile(path);
    } catch (const RuntimeException& error) {
        return error.what();
    }
    return "no error";
}

TEST(RigFile, ErrorsNameTheFileAndThePosition) {
    struct Case {
        const char* text;
        std::vector<std::string> expected;  // parts of the message
    };
    const Case cases[] = {
        {"", {"bad-rig.json:1:1"}},
        {"{\n  \"seed\": 1,\n  \"cameras\": [ {\"serial\": \"A\",, } ]\n}", {"bad-rig.json:3:", "malformed JSON"}},
        {"{\n  \"cameras\": [\n    {\"serial\": \"A\", \"width\": -5}\n  ]\n}",
         {"bad-rig.json:3:", "/cameras/0/width", "integer"}},
        {"{\"projector\": {\"rate\": 60, \"colour\": 1}}", {"bad-rig.json:1:", "/projector/colour", "unknown key"}},
        {"{\"cameras\": [{\"serial\": \"A\", \"pixelFormats\": [\"Mono12\"]}]}", {"/cameras/0/pixelFormats/0"}},
        {"{\"faults\": [{\"operation\": \"sdkFly\", \"code\": 3}]}", {"/faults/0/operation", "no SDK operation"}},
        {"{\"cameras\": [{\"serial\": \"A\"}, {\"serial\": \"A\"}]}", {"bad-rig.json", "serial used twice"}},
        {"{\"cameras\": [{\"serial\": \"A\", \"width\": 1001}]}", {"bad-rig.json", "multiples"}},
        {"{\"projector\": {\"drives\": [\"A\", \"B\"]},\n \"cameras\": [{\"serial\": \"A\"}]}",
         {"bad-rig.json:1:", "/projector/drives/1", "names no camera of the rig"}},
        {"{\"projector\": {\"drives\": [\"SIM0001\", \"SIM0001\"]}}", {"projector drives 'SIM0001' twice"}},
    };
    for (const auto& c : cases) {
        const std::string message = loadError(writeFile("bad-rig.json", c.text));
        for (const auto& part : c.expected) EXPECT_NE(message.find(part), std::string::npos) << message;
    }
    EXPECT_NE(loadError("/nonexistent/rig.json").find("/nonexistent/rig.json"), std::string::npos);
}

// Hostile files: each is refused with the file and a position, at once, without
// recursion or memory that grows with the input.
TEST(RigFile, HostileFilesAreRefusedWithTheirPosition) {
    struct Case {
        const char* what;
        std::string text;
        std::vector<std::string> expected;  // parts of the message
    };
    const Case cases[] = {
        {"100,000 levels deep", std::string(100000, '['), {"hostile.json:1:17:", "nested deeper than 16"}},
        {"larger than 1 MiB", "{\"seed\": 1" + std::string(2 << 20, ' ') + "}", {"hostile.json:1:", "larger than 1048576"}},
        {"overflowing number", "{\n  \"frameRate\": 1e400\n}", {"hostile.json:2:16:", "number out of range: 1e400"}},
        {"projector rate 1e-12", "{\"projector\": {\"rate\": 1e-12}}", {"hostile.json", "projector rate must be 0.01"}},
        {"subnormal phase period", "{\"projector\": {\"phasePeriod\": 1e-310}}", {"hostile.json", "phasePeriod"}},
        {"late by a day", "{\"cameras\": [{\"frameFaults\": [{\"kind\": \"late\", \"delayMs\": 86400000}]}]}",
         {"hostile.json", "delayMs must be 0 ... 60000"}},
        {"increment 1e-300", "{\"cameras\": [{\"gain\": {\"min\": 0, \"max\": 1, \"increment\": 1e-300}}]}",
         {"hostile.json", "gain"}},
    };
    for (const auto& c : cases) {
        const auto started = std::chrono::steady_clock::now();
        const std::string message = loadError(writeFile("hostile.json", c.text));
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(2)) << c.what;
        for (const auto& part : c.expected) EXPECT_NE(message.find(part), std::string::npos) << c.what << ": " << message;
    }
    // An endless file is read no further than the limit.
    EXPECT_NE(loadError("/dev/zero").find("/dev/zero:1:1048577: larger than"), std::string::npos);
}

TEST(RigFile, TheEnvironmentNamesTheRigFileAndItsFaultsApply) {
    EXPECT_EQ(loadRigFile(std::string(TAVRI_SIM_RIGS) + "/default.json").cameras.size(), 2u);
    ::setenv("TAVRI_SIM_RIG", (std::string(TAVRI_SIM_RIGS) + "/faulty.json").c_str(), 1);
    const RigConfig rig = rigFromEnvironment();
    auto sdk = makeSdk();
    ::unsetenv("TAVRI_SIM_RIG");
    EXPECT_EQ(rig.cameras[0].frameFaults.size(), 4u);
    EXPECT_EQ(rig.cameras[1].condition, CameraCondition::Hung);
    EXPECT_EQ(rigFromEnvironment().cameras.size(), defaultRig().cameras.size()) << "unset: the default rig";
    ASSERT_EQ(sdk->sdkInitialize(65535), Success);
    std::uint32_t count = 0;
    ASSERT_EQ(sdk->sdkGetCameraCount(&count), Success);
    EXPECT_EQ(count, 3u);
    CameraHandle camera = nullptr;
    ASSERT_EQ(sdk->sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), Success);
    ASSERT_EQ(sdk->sdkCloseCamera(camera), Success);
    EXPECT_EQ(sdk->sdkOpenCamera(0, &camera, nullptr, true, nullptr, 1), 1001u) << "the file's fault: second open";
}

}  // namespace
}  // namespace Tavri::sim::test
