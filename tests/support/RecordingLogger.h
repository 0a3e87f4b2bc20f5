#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TavriCommon/Logger.h"

namespace Tavri::testing {

struct LogRecord {
    int level;
    std::string file;
    int line;
    std::string text;
};

// Keeps every record; safe from any thread.
class RecordingLogger : public Log::LoggerInterface {
public:
    void log(int level, const char* file, int line, const std::string& text) override;

    std::vector<LogRecord> records() const;
    // Texts of the records at `level`, in order.
    std::vector<std::string> texts(int level) const;
    // Texts of all records, in order.
    std::vector<std::string> texts() const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

// Installs a RecordingLogger for its lifetime and puts the previous logger back.
class ScopedRecordingLogger {
public:
    ScopedRecordingLogger();
    ~ScopedRecordingLogger();
    RecordingLogger& operator*() { return *logger_; }
    RecordingLogger* operator->() { return logger_.get(); }

private:
    std::shared_ptr<RecordingLogger> logger_;
    std::shared_ptr<Log::LoggerInterface> previous_;
};

}  // namespace Tavri::testing
