#include "DriverLogTap.h"

namespace TeliGrab {

namespace {
// How the driver tells, at level 1, that a sequence stopped early, and why.
const char* const kSequenceEnd = "Grab sequence ended after ";
}  // namespace

class DriverLogTap::Forwarder : public Tavri::Log::LoggerInterface {
public:
    explicit Forwarder(Tavri::Log::LoggerInterface& next) : next_(next) {}

    // Called from the driver's worker thread as well as from ours.
    void log(int level, const char* file, int line, const std::string& text) override {
        if (level >= 3) {
            std::lock_guard<std::mutex> lock(mutex_);
            failures_.push_back(text);
        } else if (text.rfind(kSequenceEnd, 0) == 0) {
            std::lock_guard<std::mutex> lock(mutex_);
            sequenceEnd_ = text;
        }
        next_.log(level, file, line, text);
    }

    std::vector<std::string> failures() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return failures_;
    }
    std::string sequenceEnd() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return sequenceEnd_;
    }

private:
    Tavri::Log::LoggerInterface& next_;
    mutable std::mutex mutex_;
    std::vector<std::string> failures_;
    std::string sequenceEnd_;
};

// The current logger is either one a host installed (kept alive by previous_) or the
// library's default, which lives as long as the process.
DriverLogTap::DriverLogTap()
    : forwarder_(std::make_shared<Forwarder>(Tavri::Log::GlobalLogger::get())),
      previous_(Tavri::Log::GlobalLogger::install(forwarder_)) {}

DriverLogTap::~DriverLogTap() { Tavri::Log::GlobalLogger::install(previous_); }

std::vector<std::string> DriverLogTap::failures() const { return forwarder_->failures(); }

std::string DriverLogTap::sequenceEnd() const { return forwarder_->sequenceEnd(); }

}  // namespace TeliGrab
