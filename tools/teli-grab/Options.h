#pragma once

#include <string>
#include <vector>

namespace TeliGrab {

// Options that apply to every command.
struct GlobalOptions {
    std::string sdk;        // TAVRI_TELI_SDK for the driver; empty keeps the environment's
    std::vector<std::string> serials;  // --serial, repeatable; empty: the first camera listed
    bool all = false;                  // every camera listed (sequence, stream)
    std::string mode;       // gray, color, raw; empty leaves the driver's mode
    std::string plugin;     // empty: the plug-in beside the executable
    std::string rig;        // TAVRI_SIM_RIG for the simulator
    std::string logLevel;   // TAVRI_LOG_LEVEL; empty keeps the environment's
    bool debayer = false;   // colour preview of Raw images in PNG output
    std::string settingsFile;       // JSON settings applied after opening, before --set
    std::vector<std::string> sets;  // Key=Value pairs applied after opening
    bool strict = false;            // a value the camera did not keep is an error
};

}  // namespace TeliGrab
