#include "tests/gige/GigeCameras.h"

#include <fcntl.h>
#include <net/if.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace Tavri::gige {
namespace {

std::string env(const char* name) {
    const char* value = std::getenv(name);
    if (!value) throw std::runtime_error(std::string(name) + " is not set: run through run-in-netns.sh");
    return value;
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

}  // namespace

std::string interfacesBesidesLoopback() {
    std::string others;
    // if_nameindex asks the kernel for this process's own network namespace.
    struct if_nameindex* names = ::if_nameindex();
    if (!names) return "unknown";
    for (const struct if_nameindex* entry = names; entry->if_index != 0; ++entry) {
        if (std::string(entry->if_name) == "lo") continue;
        others += others.empty() ? "" : " ";
        others += entry->if_name;
    }
    ::if_freenameindex(names);
    return others;
}

std::vector<std::string> stockSerials() { return words(env("TAVRI_GIGE_STOCK_SERIALS")); }

std::string fixtureSerial() { return env("TAVRI_GIGE_FIXTURE_SERIAL"); }

std::vector<std::string> fixtureSerials() { return words(env("TAVRI_GIGE_FIXTURE_SERIALS")); }

std::string lossySerial() { return env("TAVRI_GIGE_LOSSY_SERIAL"); }

std::vector<std::string> allSerials() {
    auto serials = stockSerials();
    for (const auto& serial : fixtureSerials()) serials.push_back(serial);
    serials.push_back(lossySerial());
    std::sort(serials.begin(), serials.end());
    return serials;
}

void pulseTriggerLine(int count, const std::vector<std::string>& lostOn) {
    const auto serials = fixtureSerials();
    const auto paths = words(env("TAVRI_GIGE_FIXTURE_CONTROLS"));
    if (paths.size() != serials.size()) throw std::runtime_error("one control FIFO per fixture camera expected");
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const bool lost = std::find(lostOn.begin(), lostOn.end(), serials[i]) != lostOn.end();
        // Non-blocking: the fixture holds the FIFO open, so this never waits.
        const int fd = ::open(paths[i].c_str(), O_WRONLY | O_NONBLOCK);
        if (fd < 0) throw std::runtime_error("cannot open the fixture's trigger FIFO " + paths[i]);
        const std::string line = (lost ? "lose " : "") + std::to_string(count) + "\n";
        const ssize_t written = ::write(fd, line.data(), line.size());
        ::close(fd);
        if (written != static_cast<ssize_t>(line.size()))
            throw std::runtime_error("trigger FIFO write failed: " + paths[i]);
    }
}

namespace {
bool signalCamera(const std::string& serial, int signal) {
    for (const std::string& entry : words(env("TAVRI_GIGE_PIDS"))) {  // "serial=pid ..."
        const auto equals = entry.find('=');
        if (entry.substr(0, equals) == serial) return ::kill(std::stoi(entry.substr(equals + 1)), signal) == 0;
    }
    return false;
}
}  // namespace

bool killCamera(const std::string& serial) { return signalCamera(serial, SIGKILL); }
bool freezeCamera(const std::string& serial) { return signalCamera(serial, SIGSTOP); }

std::size_t patternMismatches(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height) {
    const unsigned frame = pixels[0];
    std::size_t mismatches = 0;
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x)
            if (pixels[std::size_t{y} * width + x] != (x + y + frame) % 255) ++mismatches;
    return mismatches;
}

}  // namespace Tavri::gige
