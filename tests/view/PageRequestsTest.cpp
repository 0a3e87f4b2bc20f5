// What the page may send, what is refused before the camera is touched, and why.
#include <gtest/gtest.h>

#include "ToolError.h"
#include "view/ListenAddress.h"
#include "view/PageRequests.h"

namespace TeliGrab::View {
namespace {

TEST(PageRequests, ControlChangesSplitIntoModeAndTree) {
    const auto change = parseSettingsChange(
        R"({"ExposureTime": 5000, "Camera/ColorMode": "Color", "Camera/TriggerPolarity": "RisingEdge"})");
    ASSERT_TRUE(change.mode.has_value());
    EXPECT_EQ(*change.mode, Tavri::ImageType::Color);
    EXPECT_TRUE(change.hasTreeKeys);
    EXPECT_EQ(change.tree["ExposureTime"].toDouble(), 5000.0);
    EXPECT_EQ(change.tree["Camera/TriggerPolarity"].toString(), "RisingEdge");
    // The colour mode goes through setMode only, never as the tree's key.
    EXPECT_FALSE(change.tree.has("Camera/ColorMode"));

    const auto modeOnly = parseSettingsChange(R"({"Camera/ColorMode": "Raw"})");
    EXPECT_FALSE(modeOnly.hasTreeKeys);
}

TEST(PageRequests, BadInputIsRefusedWithItsReason) {
    const struct {
        const char* body;
        const char* reason;
    } cases[] = {
        {"", "expected a JSON object"},
        {"[1, 2]", "expected a JSON object"},
        {"{}", "expected a JSON object"},
        {R"({"Shutter": 1})", "unknown setting 'Shutter'; known: ExposureTime"},
        {R"({"camera/gain": 1})", "unknown setting 'camera/gain'"},
        {R"({"Camera/Gain": "3"})", "Camera/Gain must be a number, got \"3\""},
        {R"({"RedBalance": null})", "RedBalance must be a number"},
        {R"({"ExposureTime": 1e999})", "expected a JSON object"},
        // The driver would take "grayscale" as Gray; the page sends only exact words.
        {R"({"Camera/ColorMode": "grayscale"})", "Camera/ColorMode must be one of Gray, Color, Raw"},
        {R"({"Camera/TriggerType": 1})", "Camera/TriggerType must be one of Hardware, Software, NoTrigger, got 1"},
        {R"({"ExposureTime": 100, "Bogus": 1})", "unknown setting 'Bogus'"},
    };
    for (const auto& c : cases) {
        try {
            parseSettingsChange(c.body);
            ADD_FAILURE() << c.body << " was accepted";
        } catch (const RequestError& error) {
            EXPECT_NE(std::string(error.what()).find(c.reason), std::string::npos) << c.body << ": " << error.what();
        }
    }
}

TEST(PageRequests, SettingsFilesAsTeliGrabPrintsThem) {
    const auto change = parseSettingsFile(
        R"({"Camera": {"BayerLayout": "BGGR", "ColorMode": "Gray", "Gain": 2}, "ExposureTime": 9000})");
    EXPECT_TRUE(change.hasTreeKeys);
    ASSERT_TRUE(change.mode.has_value());
    EXPECT_EQ(*change.mode, Tavri::ImageType::Gray);
    EXPECT_EQ(change.tree["Camera/Gain"].toDouble(), 2.0);

    // A word the driver refuses stays in the tree for the driver to refuse; no setMode.
    EXPECT_FALSE(parseSettingsFile(R"({"Camera": {"ColorMode": "Blue"}})").mode.has_value());

    for (const char* bad : {"not json", R"({"Lens": {"MaxIris": 2}})", "{}"})
        EXPECT_THROW(parseSettingsFile(bad), RequestError) << bad;
}

TEST(PageRequests, SequenceCountsAndListenAddresses) {
    EXPECT_EQ(parseSequenceCount("1"), 1);
    EXPECT_EQ(parseSequenceCount("120"), 120);
    for (const char* bad : {"", "0", "121", "-3", "12a", " 12", "1.5", "99999999999"})
        EXPECT_THROW(parseSequenceCount(bad), RequestError) << bad;

    const auto loopback = parseListenAddress("127.0.0.1:8080");
    EXPECT_EQ(loopback.port, 8080);
    EXPECT_FALSE(loopback.needsToken());
    EXPECT_TRUE(parseListenAddress("127.0.0.2:0").needsToken());
    EXPECT_TRUE(parseListenAddress("0.0.0.0:80").needsToken());
    for (const char* bad : {"8080", "localhost:8080", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "1.2.3:80"})
        EXPECT_THROW(parseListenAddress(bad), ToolError) << bad;

    const auto token = randomToken();
    EXPECT_EQ(token.size(), 32u);
    EXPECT_NE(token, randomToken());
}

}  // namespace
}  // namespace TeliGrab::View
