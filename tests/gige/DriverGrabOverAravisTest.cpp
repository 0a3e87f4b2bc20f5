// Grabbing from GigE cameras through the driver, image by image: whole images and the
// stream's figures, and cameras that die mid-stream.

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TavriCommon/Exceptions.h"
#include "sdk/TeliSdk.h"
#include "tests/gige/DriverOverAravis.h"
#include "tests/gige/GigeCameras.h"

namespace Tavri {
namespace {

namespace Camera = SettingsOld::Camera;
using gige::patternMismatches;
using gige::stockSerials;

// Each image is software-triggered by the driver: every image that comes carries the
// pattern whole and is not its predecessor again. When acquisition stops, Aravis's
// figures for it are logged: at level 1 when all came, at level 3 when a camera lost
// packets, with the count.
TEST_F(DriverOverAravis, ContinuousGrabDeliversWholeImagesAndLogsTheStreamsFigures) {
    const std::vector<std::tuple<std::string, int, bool>> rows{  // camera, level, lossy
        {gige::fixtureSerial(), 1, false},
        {gige::lossySerial(), 3, true},
    };
    for (const auto& [serial, level, lossy] : rows) {
        SCOPED_TRACE(serial);
        logger->clear();
        ASSERT_NO_FATAL_FAILURE(openShowingPattern(serial, Camera::TriggerTypeValues::Software));
        cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
        camera->initGrabContinuous();
        int previous = -1;
        for (int i = 0; i < 10; ++i) {
            try {
                camera->getNextImage(image, 2000);
            } catch (const RuntimeException&) {
                EXPECT_TRUE(lossy) << "image " << i;  // an incomplete frame fails the grab
                continue;
            }
            EXPECT_EQ(patternMismatches(image.data, image.cols, image.rows), 0u) << "image " << i;
            EXPECT_NE(image.data[0], previous) << "image " << i << " repeats its predecessor";
            previous = image.data[0];
        }
        camera->releaseGrabContinuous();
        const auto texts = logger->texts(level);
        const auto line = std::find_if(texts.begin(), texts.end(),
                                       [](const std::string& t) { return t.rfind("Aravis stream of", 0) == 0; });
        ASSERT_NE(line, texts.end());
        std::smatch missing;
        ASSERT_TRUE(std::regex_search(*line, missing, std::regex(R"((\d+) missing packets)"))) << *line;
        EXPECT_EQ(std::stoul(missing[1]) > 0, lossy) << *line;
        camera->releaseCamera();
    }
}

// A camera killed mid-stream: images already on their way may still arrive; then the
// software trigger the driver sends before each wait goes unanswered. Once Aravis
// reports the camera lost, every call on it fails with 19 without waiting out a
// time-out, so the host's connection check answers false at once.
TEST_F(DriverOverAravis, CameraKilledMidStreamFailsEveryLaterCallAtOnceWithTheDriversErrors) {
    const std::string victim = stockSerials().back();
    ASSERT_NO_FATAL_FAILURE(openShowingPattern(victim, Camera::TriggerTypeValues::Software));
    // A second handle on the same connection, to see the backend's own answer.
    TeliSdk& sdk = activeSdk();
    std::uint32_t count = 0, index = 0;
    ASSERT_EQ(sdk.sdkGetCameraCount(&count), SdkResult::Success);
    for (; index < count; ++index) {
        CameraInfoRecord record;
        record.clear();
        if (sdk.sdkGetCameraInfo(nullptr, index, &record) == SdkResult::Success && record.serialNumber() == victim)
            break;
    }
    CameraHandle second = nullptr;
    ASSERT_EQ(sdk.sdkOpenCamera(index, &second, nullptr, true, nullptr, 1), SdkResult::CameraAlreadyOpen);

    cv::Mat image(camera->getRows(), camera->getCols(), CV_8UC1);
    camera->initGrabContinuous();
    camera->getNextImage(image, 2000);
    ASSERT_TRUE(gige::killCamera(victim));
    std::string failure;
    for (int i = 0; i <= 130 && failure.empty(); ++i) {
        try {
            camera->getNextImage(image, 1000);
        } catch (const RuntimeException& e) {
            failure = e.what();
        }
    }
    EXPECT_EQ(failure, "Failed to send software trigger signal to camera");

    const auto lostLine = [&] {
        const auto texts = logger->texts(3);
        return std::any_of(texts.begin(), texts.end(), [&](const std::string& t) {
            return t.rfind("Aravis: camera ", 0) == 0 && t.find(victim) != std::string::npos &&
                   t.find(" lost (") != std::string::npos;
        });
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!lostLine() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(lostLine());

    const std::vector<std::pair<const char*, std::function<bool()>>> calls{
        {"isConnected", [&] { return !camera->isConnected(); }},
        {"sdkGetWidth", [&] {
             std::uint32_t width = 0;
             return sdk.sdkGetWidth(second, &width) == SdkResult::NotResponding;
         }},
        {"sdkSetExposureTime", [&] { return sdk.sdkSetExposureTime(second, 5000.0) == SdkResult::NotResponding; }},
    };
    for (const auto& [what, call] : calls) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(call()) << what;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << what;
    }
    EXPECT_THROW(camera->releaseGrabContinuous(), RuntimeException);
    EXPECT_EQ(sdk.sdkCloseCamera(second), SdkResult::Success);
}

}  // namespace
}  // namespace Tavri
