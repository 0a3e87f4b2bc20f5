#include "tests/support/RecordingLogger.h"

namespace Tavri::testing {

void RecordingLogger::log(int level, const char* file, int line, const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back({level, file ? file : "", line, text});
}

std::vector<LogRecord> RecordingLogger::records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

std::vector<std::string> RecordingLogger::texts(int level) const {
    std::vector<std::string> result;
    for (const auto& record : records())
        if (record.level == level) result.push_back(record.text);
    return result;
}

std::vector<std::string> RecordingLogger::texts() const {
    std::vector<std::string> result;
    for (const auto& record : records()) result.push_back(record.text);
    return result;
}

void RecordingLogger::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

ScopedRecordingLogger::ScopedRecordingLogger()
    : logger_(std::make_shared<RecordingLogger>()), previous_(Log::GlobalLogger::install(logger_)) {}

ScopedRecordingLogger::~ScopedRecordingLogger() { Log::GlobalLogger::install(previous_); }

}  // namespace Tavri::testing
