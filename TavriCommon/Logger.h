#pragma once

#include <memory>
#include <optional>
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
    // The process-wide logger. Each call of its log() goes to the logger installed at
    // that moment (or to the default one: spdlog on stderr, printing records whose
    // level is at least TAVRI_LOG_LEVEL, default 3) and holds a share of it until the
    // call returns, so install() may run on another thread at any time. A record
    // logged from inside an installed logger's own log() goes to the default logger.
    static LoggerInterface& get();
    // Installs a host's own logger (null restores the default) and returns the one it
    // replaces, so the caller can keep it alive or put it back. A logger replaced while
    // other threads are inside its log() is destroyed when the last of them returns.
    static std::shared_ptr<LoggerInterface> install(std::shared_ptr<LoggerInterface> logger);
};

// TAVRI_LOG_LEVEL: a level 0-4 or its name, in any case: debug (0), info (1),
// notice (2), warning or warn (3), critical or fatal (4). Anything else has no level;
// the default logger then says so once and keeps the threshold 3.
std::optional<int> parseLogLevel(const std::string& text);

}  // namespace Tavri::Log

// The build maps the project's folder out of __FILE__ (-fmacro-prefix-map), so records
// name files relative to the project ("TavriAPI/Acquisition.cpp").
#define TAVRI_LOG(level, text) ::Tavri::Log::GlobalLogger::get().log((level), __FILE__, __LINE__, (text))
