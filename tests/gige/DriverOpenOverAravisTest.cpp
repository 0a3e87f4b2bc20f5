// Opening a GigE camera through the driver: settings read from the camera, the
// features a camera lacks, the transport variables, and discovery rounds.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TavriCommon/Exceptions.h"
#include "sdk/aravis/AravisSdk.h"
#include "tests/gige/DriverOverAravis.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace Camera = SettingsOld::Camera;
using gige::fixtureSerial;
using gige::stockSerials;

TEST_F(DriverOverAravis, OpensBySerialAndRoundTripsSettings) {
    ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str()));
    EXPECT_TRUE(camera->isConnected());
    EXPECT_EQ(camera->getCols(), 640);
    EXPECT_EQ(camera->getRows(), 480);
    // Read from the camera, not kept by the driver: the fixture holds ratios on a 1/64 grid.
    EXPECT_DOUBLE_EQ(camera->settings()[SettingsOld::BlueBalance].toDouble(), 82.0 / 64);  // 1.281 stored
    EXPECT_EQ(camera->settings()[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::FallingEdge);

    const std::vector<std::pair<std::string, double>> numbers{
        {SettingsOld::ExposureTime, 5000.0}, {Camera::Gain, 2.0}, {Camera::BlackLevel, 4.5},
        {SettingsOld::RedBalance, 1.5},      {SettingsOld::BlueBalance, 2.0}};
    const std::vector<std::pair<std::string, std::string>> words{
        {Camera::ColorMode, Camera::ColorModeValues::Gray},
        {Camera::TriggerType, Camera::TriggerTypeValues::Software},
        {Camera::TriggerPolarity, Camera::TriggerPolarityValues::RisingEdge}};
    TSettings wanted;
    for (const auto& [key, value] : numbers) wanted.addDouble(key, value, "");
    for (const auto& [key, value] : words) wanted.addString(key, value, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    const TSettings now = camera->settings();
    for (const auto& [key, value] : numbers) EXPECT_DOUBLE_EQ(now[key].toDouble(), value) << key;
    for (const auto& [key, value] : words) EXPECT_EQ(now[key].toString(), value) << key;
    EXPECT_TRUE(logger->texts(3).empty()) << logger->texts(3).front();
}

// What a camera or the environment refuses at the open is logged where the driver logs
// it. The stock fake camera has no FallingEdge and no camera has Line9: the camera still
// opens, and right before the driver's line the backend names the feature, the value and
// what the camera offers. A transport variable with a value it does not allow stops the
// open, naming the variable, the value and what it allows; a good value opens. Later,
// the stock camera's missing BlackLevel and BalanceRatio are logged the same way.
TEST_F(DriverOverAravis, RefusalsAtTheOpenAreLoggedWithWhatTheCameraOrVariableAllows) {
    struct Row {
        std::string serial;
        const char* variable;  // set for this open; null: none
        const char* value;
        std::vector<std::string> lines;  // logged at level 3, in a row
        const char* failure = "";        // the open's exception text
    };
    const auto invalid = [](const char* variable, const char* value, const char* allowed) {
        return Row{fixtureSerial(), variable, value,
                   {std::string("Aravis: ") + variable + "=" + value + " is not valid; allowed: " + allowed},
                   "Failed to open camera."};
    };
    const std::vector<Row> rows{
        {stockSerials().front(), nullptr, nullptr,
         {"Aravis: set trigger activation failed with 108: TriggerActivation = FallingEdge refused: no such entry; "
          "the camera offers RisingEdge",
          "Failed to set camera trigger activation"}},
        {fixtureSerial(), "TAVRI_ARAVIS_TRIGGER_LINE", "Line9",
         {"Aravis: set trigger source failed with 108: TriggerSource = Line9 refused: no such entry; the camera "
          "offers Line0, Line1, Software",
          "Failed to set camera trigger source"}},
        invalid("TAVRI_ARAVIS_PACKET_SIZE", "abc", "auto, or a whole number of bytes from 576 to 16384"),
        invalid("TAVRI_ARAVIS_PACKET_SIZE", "100", "auto, or a whole number of bytes from 576 to 16384"),
        invalid("TAVRI_ARAVIS_PACKET_DELAY", "-5", "camera, or a whole number of nanoseconds from 0 to 100000000"),
        invalid("TAVRI_ARAVIS_SOCKET_BUFFER", "4M", "auto, or a whole number of bytes from 65536 to 1073741824"),
        invalid("TAVRI_ARAVIS_PACKET_RESEND", "maybe", "on or off"),
        {fixtureSerial(), "TAVRI_ARAVIS_PACKET_SIZE", "1400", {}},
        {fixtureSerial(), "TAVRI_ARAVIS_SOCKET_BUFFER", "1048576", {}},
        {fixtureSerial(), "TAVRI_ARAVIS_PACKET_RESEND", "off", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.serial + (row.variable ? std::string(" ") + row.variable + "=" + row.value : ""));
        logger->clear();
        if (row.variable) ::setenv(row.variable, row.value, 1);
        std::string failure;
        bool opened = false;
        try {
            opened = camera->initializeCamera(row.serial.c_str());
        } catch (const RuntimeException& e) {
            failure = e.what();
        }
        if (row.variable) ::unsetenv(row.variable);
        EXPECT_EQ(failure, row.failure);
        EXPECT_EQ(opened && camera->isConnected(), failure.empty());
        const auto texts = logger->texts(3);
        if (!row.lines.empty()) {
            EXPECT_NE(std::search(texts.begin(), texts.end(), row.lines.begin(), row.lines.end()), texts.end());
        }
        camera->releaseCamera();
    }

    ASSERT_TRUE(camera->initializeCamera(stockSerials().front().c_str()));
    TSettings wanted;
    wanted.addDouble(Camera::BlackLevel, 4.5, "");
    wanted.addDouble(SettingsOld::RedBalance, 1.5, "");
    ASSERT_TRUE(camera->updateSettings(wanted));
    EXPECT_TRUE(logged(3, "Failed to set new black level"));
    EXPECT_TRUE(logged(3, "Aravis: set black level failed with 300: the camera has neither BlackLevel nor "
                          "BlackLevelRaw"));
    EXPECT_TRUE(logged(1, "Attempted to set red balance to 1.50. New red balance read from camera: 0.00"));

    const TSettings now = camera->settings();
    EXPECT_DOUBLE_EQ(now[SettingsOld::ExposureTime].toDouble(), 8333.0);  // kept as ExposureTimeAbs
    EXPECT_EQ(now[Camera::TriggerPolarity].toString(), Camera::TriggerPolarityValues::RisingEdge);
}

// The driver counts the cameras up to three times for one open (the host's list, the
// open's count, the serial's index) and asks for them again on every connection
// check; one discovery round serves them all, and a list that has grown old is
// renewed, so a camera that is gone is no longer listed.
TEST_F(DriverOverAravis, OneDiscoveryRoundServesAnOpenAndAnOldListIsRenewed) {
    const auto rounds = [&] {
        const auto texts = logger->texts(1);
        return std::count_if(texts.begin(), texts.end(),
                             [](const std::string& t) { return t.rfind("Aravis: discovery found", 0) == 0; });
    };
    const auto listed = [&](const std::string& serial) {
        const auto cameras = camera->getInfoInternalCameras();
        return std::any_of(cameras.begin(), cameras.end(),
                           [&](const InternalCameraInfo& c) { return c.serialNumber == serial; });
    };
    const std::string leaving = stockSerials()[1];
    const std::vector<std::tuple<const char*, std::function<void()>, long>> steps{
        {"list the cameras", [&] { EXPECT_TRUE(listed(leaving)); }, 1},
        {"open", [&] { ASSERT_TRUE(camera->initializeCamera(fixtureSerial().c_str())); }, 1},
        {"check the connection", [&] { EXPECT_TRUE(camera->isConnected()); }, 1},
        {"list again once a camera is gone and the list is old",
         [&] {
             ASSERT_TRUE(gige::killCamera(leaving));
             std::this_thread::sleep_for(aravis::AravisSdk::kDeviceListMaxAge + std::chrono::milliseconds(200));
             EXPECT_FALSE(listed(leaving));
         },
         2},
    };
    for (const auto& [step, run, roundsAfter] : steps) {
        ASSERT_NO_FATAL_FAILURE(run()) << step;
        EXPECT_EQ(rounds(), roundsAfter) << step;
    }
}

}  // namespace
}  // namespace Tavri
