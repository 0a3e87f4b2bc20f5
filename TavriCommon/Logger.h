#pragma once

#include <memory>
#include <string>

namespace Tavri::Log {

// Levels: 1 progress and information, 3 survived failures, 4 a dying thread.
class LoggerInterface {
public:
    // Must be safe to call from any thread.
    virtual void log(int level, const char* file, int line, const std::string& text) = 0;
    virtual ~LoggerInterface() = default;
};

class GlobalLogger {
public:
    // The installed logger, or the default one: spdlog on stderr, printing records
    // whose level is at least TAVRI_LOG_LEVEL (default 3).
    static LoggerInterface& get();
    // Installs a host's own logger (null restores the default) and returns the one it
    // replaces, so the caller can keep it alive or put it back.
    static std::shared_ptr<LoggerInterface> install(std::shared_ptr<LoggerInterface> logger);
};

}  // namespace Tavri::Log

#define TAVRI_LOG(level, text) ::Tavri::Log::GlobalLogger::get().log((level), __FILE__, __LINE__, (text))
