#pragma once
// The plug-in as the platform drives it over Aravis (TAVRI_TELI_SDK), one camera object
// per camera; the peer is a real GigE camera, not the mock SDK.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "TavriAPI/TavriCameraToshibaTeli.h"
#include "TavriCommon/Settings.h"
#include "settings/SettingsOld.h"
#include "tests/support/RecordingLogger.h"

namespace Tavri {

class DriverOverAravis : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("TAVRI_TELI_SDK", "aravis", 1);
        initializeDriver();
        camera.reset(createCamera());
    }
    void TearDown() override {
        for (auto& other : others) other->releaseCamera();
        others.clear();
        camera->releaseCamera();
        camera.reset();
        releaseDriver();
    }

    // One more camera object, as a host of several cameras holds.
    CameraDriver& anotherCamera() {
        others.emplace_back(createCamera());
        return *others.back();
    }

    // Opens `serial` on `driver` (default: the first camera object) showing the fake
    // camera's pattern unscaled (Mono8, gain 0, exposure 10000 us), triggered as asked.
    void openShowingPattern(const std::string& serial, const std::string& triggerType, CameraDriver* driver = nullptr) {
        if (!driver) driver = camera.get();
        ASSERT_TRUE(driver->initializeCamera(serial.c_str()));
        driver->setMode(ImageType::Gray);
        TSettings settings;
        settings.addDouble(SettingsOld::ExposureTime, 10000.0, "");
        settings.addDouble(SettingsOld::Camera::Gain, 0.0, "");
        settings.addString(SettingsOld::Camera::TriggerType, triggerType, "");
        ASSERT_TRUE(driver->updateSettings(settings));
    }
    bool logged(int level, const std::string& text) {
        const auto texts = logger->texts(level);
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    testing::ScopedRecordingLogger logger;
    std::unique_ptr<CameraDriver> camera;
    std::vector<std::unique_ptr<CameraDriver>> others;
};

}  // namespace Tavri
