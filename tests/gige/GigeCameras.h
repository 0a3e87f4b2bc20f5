#pragma once
// What the namespace harness (run-in-netns.sh) set up for a GigE test: the cameras'
// serials, the fixture's trigger line, and the camera processes' ids.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Tavri::gige {

// Names of the network interfaces this process can reach other than loopback, space
// separated; empty inside the harness's namespace.
std::string interfacesBesidesLoopback();

std::vector<std::string> stockSerials();
std::string fixtureSerial();
// Every fixture camera, fixtureSerial() first; one trigger line reaches them all.
std::vector<std::string> fixtureSerials();
// A stock fake camera that drops 2 % of its stream packets.
std::string lossySerial();
// Every camera's serial, the order the backend lists them in (sorted).
std::vector<std::string> allSerials();

// Pulses the trigger line `count` times, every pulse reaching every fixture camera, as
// one projector wired to several cameras. The frames of those pulses are lost on the
// link of the cameras in `lostOn` (they count them, the host never sees them).
void pulseTriggerLine(int count, const std::vector<std::string>& lostOn = {});

// Kills the camera process serving `serial` outright (SIGKILL), as a camera that
// loses power; returns false if the harness did not start it.
bool killCamera(const std::string& serial);
// Stops the camera process (SIGSTOP): it no longer answers, and, unlike a killed one
// on loopback, nothing says so, as with a pulled cable. killCamera ends it.
bool freezeCamera(const std::string& serial);

// The fake camera's Mono8 test pattern at scale 1 (gain 0, exposure 10000 us): pixel
// (x, y) of frame f holds (x + y + f) mod 255. Returns the number of pixels of the
// image that break it for the frame that pixel (0, 0) implies.
std::size_t patternMismatches(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height);

}  // namespace Tavri::gige
