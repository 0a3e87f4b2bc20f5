#include <gtest/gtest.h>

#include <optional>

#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

using ::testing::_;
using ::testing::DoAll;
using ::testing::InSequence;
using ::testing::Return;

// Serial numbers match byte for byte over their whole length; the first match wins.
TEST(DiscoveryTest, SerialMatchingIsExact) {
    struct Case {
        std::vector<std::string> serials;
        const char* wanted;
        int openedIndex;  // -1: "Failed to locate"
    };
    const Case cases[] = {
        {{"AB12", "ab12"}, "ab12", 1},
        {{"AB12"}, "ab12", -1},
        {{"AB123"}, "AB12", -1},
        {{"AB1"}, "AB12", -1},
        {{"X", ""}, "", 1},
        {{"DUP", "DUP"}, "DUP", 0},
        {{"A", "B", "C"}, "C", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.wanted);
        std::vector<FakeCameraInfo> cameras;
        for (const auto& serial : c.serials) cameras.push_back({"V", "M", serial});
        DriverFixture f(cameras);
        if (c.openedIndex < 0) {
            EXPECT_EQ(runtimeError([&] { f.camera->initializeCamera(c.wanted); }),
                      std::string("Failed to locate a camera with serial number ") + c.wanted);
            EXPECT_EQ(f.sdk.calls(Operation::sdkOpenCamera), 0);
        } else {
            EXPECT_CALL(f.sdk, sdkOpenCamera(static_cast<std::uint32_t>(c.openedIndex), _, _, _, _, _));
            f.camera->initializeCamera(c.wanted);
            f.camera->releaseCamera();
        }
    }
}

// A serial field without a terminator is read to the record's end and no further.
TEST(DiscoveryTest, UnterminatedSerialStopsAtTheRecordsEnd) {
    DriverFixture f;
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(_, _, _)).WillRepeatedly([](CameraHandle, std::uint32_t, CameraInfoRecord* r) {
        std::memset(r->bytes, 'S', sizeof r->bytes);
        return 0u;
    });
    const auto cameras = f.camera->getInfoInternalCameras();
    ASSERT_EQ(cameras.size(), 1u);
    EXPECT_EQ(cameras[0].serialNumber.size(), CameraInfoRecord::Size - CameraInfoRecord::SerialOffset);
    EXPECT_EQ(cameras[0].vendor.size(), CameraInfoRecord::Size - CameraInfoRecord::FirstTextOffset);
}

// A camera that does not answer gets one connection reset; each failing step of it
// passes the camera over with its own code.
TEST(DiscoveryTest, UnresponsiveCameraGetsOneConnectionReset) {
    struct Case {
        Result open, close, reread;
        std::vector<std::string> level3;
        bool found;
    };
    const Case cases[] = {
        {0, 0, 0, {}, true},
        {4, 0, 0, {}, true},
        {6, 0, 0, {"Failed to communicate with a connected camera. The return code was: 6"}, false},
        {0, 7, 0, {"Failed to communicate with a connected camera. The return code was: 7"}, false},
        {0, 0, 19, {"Failed to communicate with a connected camera. The return code was: 19"}, false},
    };
    for (const auto& c : cases) {
        DriverFixture f({{"V", "M", "SLEEPY"}});
        {
            InSequence order;
            EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 0u, _)).WillOnce(Return(SdkResult::NotResponding));
            EXPECT_CALL(f.sdk, sdkOpenCamera(0u, _, nullptr, true, nullptr, 1u))
                .WillOnce(DoAll(::testing::SetArgPointee<1>(reinterpret_cast<void*>(0x77)), Return(c.open)));
            if (c.open == 0 || c.open == 4) {
                EXPECT_CALL(f.sdk, sdkCloseCamera(reinterpret_cast<void*>(0x77))).WillOnce(Return(c.close));
                if (c.close == 0) {
                    if (c.reread == 0)
                        EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 0u, _));  // the fake fills the record
                    else
                        EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 0u, _)).WillOnce(Return(c.reread));
                }
            }
            if (c.found) EXPECT_CALL(f.sdk, sdkOpenCamera(0u, _, _, _, _, _));
        }
        const std::string error = runtimeError([&] { f.camera->initializeCamera("SLEEPY"); });
        EXPECT_EQ(error, c.found ? "<no RuntimeException>" : "Failed to locate a camera with serial number SLEEPY");
        EXPECT_EQ(f.log->texts(3), c.level3);
        const auto level1 = f.log->texts(1);
        ASSERT_FALSE(level1.empty());
        EXPECT_EQ(level1[0],
                  "A camera did not respond when attempting to read information about it. Attempting to terminate "
                  "it's inoperative connection.");
        ::testing::Mock::VerifyAndClearExpectations(&f.sdk);
        f.camera->releaseCamera();
    }
}

TEST(DiscoveryTest, OtherInformationFailuresPassTheCameraOver) {
    DriverFixture f({{"V", "M", "A"}, {"V", "M", "B"}});
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 0u, _)).WillOnce(Return(33u));
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 1u, _));
    EXPECT_CALL(f.sdk, sdkOpenCamera(1u, _, _, _, _, _));
    f.camera->initializeCamera("B");
    EXPECT_EQ(f.log->texts(1)[0],
              "Failed to retrieve information about about a connected camera. The return code was: 33");
    f.camera->releaseCamera();
}

TEST(DiscoveryTest, ListSkipsUnreadableCamerasAndNeverResets) {
    DriverFixture f({{"Teli", "BU", "S0"}, {"Teli", "BU", "S1"}, {"Teli", "DU", "S2"}});
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(_, _, _)).Times(::testing::AnyNumber());
    EXPECT_CALL(f.sdk, sdkGetCameraInfo(nullptr, 1u, _)).WillOnce(Return(SdkResult::NotResponding));
    const auto cameras = f.camera->getInfoInternalCameras();
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_EQ(cameras[0].serialNumber, "S0");
    EXPECT_EQ(cameras[1].serialNumber, "S2");
    EXPECT_EQ(cameras[1].vendor, "Teli");
    EXPECT_EQ(cameras[1].model, "DU");
    EXPECT_EQ(f.sdk.calls(Operation::sdkOpenCamera), 0);
    EXPECT_TRUE(f.log->texts().empty());

    f.sdk.fail(Operation::sdkGetCameraCount, 8);
    EXPECT_EQ(runtimeError([&] { f.camera->getInfoInternalCameras(); }), "Failed to get number of internal cameras");
    EXPECT_EQ(runtimeError([&] { f.camera->initializeCamera("S0"); }), "Failed to get number of cameras");

    DriverFixture none(std::vector<FakeCameraInfo>{});
    EXPECT_TRUE(none.camera->getInfoInternalCameras().empty());
    EXPECT_EQ(none.sdk.calls(Operation::sdkGetCameraInfo), 0);
}

TEST(ConnectionTest, ChecksByHandleWhenOpenAndByIndexOtherwise) {
    struct Case {
        bool open;
        std::optional<Operation> failing;  // operation made to fail
        bool attached;
        bool expected;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {true, std::nullopt, true, true, {}},
        {true, Operation::sdkGetCameraInfo, true, false, {"Failed to get camera info"}},
        {false, std::nullopt, true, true, {}},
        {false, std::nullopt, false, false, {"Failed to get number of cameras."}},
        {false, Operation::sdkGetCameraCount, true, false, {"Failed to get number of cameras."}},
    };
    for (const auto& c : cases) {
        DriverFixture f(c.attached ? std::vector<FakeCameraInfo>{{"V", "M", "CAM0"}} : std::vector<FakeCameraInfo>{});
        if (c.open) f.open();
        const int countsBefore = f.sdk.calls(Operation::sdkGetCameraCount);
        if (c.failing) f.sdk.fail(*c.failing, 19);
        for (int poll = 0; poll < 2; ++poll) {
            EXPECT_EQ(f.camera->isConnected(), c.expected);
            EXPECT_EQ(f.camera->checkPresence(), c.expected);
        }
        std::vector<std::string> expectedLines;
        for (int i = 0; i < 4; ++i) expectedLines.insert(expectedLines.end(), c.lines.begin(), c.lines.end());
        EXPECT_EQ(f.log->texts(1), expectedLines);
        if (c.open) {
            EXPECT_EQ(f.sdk.calls(Operation::sdkGetCameraCount), countsBefore) << "an open camera is not counted";
        }
        f.sdk.heal(Operation::sdkGetCameraInfo);
        f.camera->releaseCamera();
    }
}

}  // namespace
}  // namespace Tavri::testing
