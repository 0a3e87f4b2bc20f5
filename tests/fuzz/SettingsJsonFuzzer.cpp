// The settings JSON loader on arbitrary text. A refusal is a host exception; anything
// else that escapes, a crash, a sanitizer report or a hang fails the run. What loads
// must save and load again to the same text.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string saved;
    try {
        saved = Tavri::TSettings::fromJson(text, "fuzz.json").toJson();
    } catch (const Tavri::Exception&) {
        return 0;
    }
    if (Tavri::TSettings::fromJson(saved, "saved.json").toJson() != saved) {
        std::fprintf(stderr, "a saved tree loads as a different tree:\n%s\n", saved.c_str());
        std::abort();
    }
    return 0;
}
