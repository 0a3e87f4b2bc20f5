#pragma once
// Texts already told, so that a warning repeated by every open or apply is told once
// per run and logged as a detail after that. Thread-safe.

#include <mutex>
#include <set>
#include <string>

namespace Tavri::aravis {

class OncePerRun {
public:
    // True the first time `text` is offered.
    bool first(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        return told_.insert(text).second;
    }

private:
    std::mutex mutex_;
    std::set<std::string> told_;
};

}  // namespace Tavri::aravis
