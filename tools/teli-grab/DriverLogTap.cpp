#include "DriverLogTap.h"

#include <algorithm>

namespace TeliGrab {

class DriverLogTap::Forwarder : public Tavri::Log::LoggerInterface {
public:
    explicit Forwarder(int kept) : kept_(kept) {}

    // The logger installed before this one; none means the library's default.
    void forwardTo(std::shared_ptr<Tavri::Log::LoggerInterface> next) {
        std::lock_guard<std::mutex> lock(mutex_);
        next_ = std::move(next);
    }

    // Called from the driver's worker thread as well as from ours.
    void log(int level, const char* file, int line, const std::string& text) override {
        std::shared_ptr<Tavri::Log::LoggerInterface> next;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (level >= kept_) failures_.push_back(text);
            next = next_;
        }
        // From inside an installed logger, the global logger is the default one.
        if (next)
            next->log(level, file, line, text);
        else
            Tavri::Log::GlobalLogger::get().log(level, file, line, text);
    }

    std::vector<std::string> failures() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return failures_;
    }

private:
    const int kept_;
    mutable std::mutex mutex_;
    std::shared_ptr<Tavri::Log::LoggerInterface> next_;
    std::vector<std::string> failures_;
};

// Records go on to the logger installed before (a host's, or an outer tap), which
// previous_ keeps alive until it is installed again.
DriverLogTap::DriverLogTap(int kept)
    : forwarder_(std::make_shared<Forwarder>(kept)), previous_(Tavri::Log::GlobalLogger::install(forwarder_)) {
    forwarder_->forwardTo(previous_);
}

DriverLogTap::~DriverLogTap() { Tavri::Log::GlobalLogger::install(previous_); }

std::vector<std::string> DriverLogTap::failures() const { return forwarder_->failures(); }

bool DriverLogTap::saw(const std::string& text) const {
    const auto texts = failures();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace TeliGrab
