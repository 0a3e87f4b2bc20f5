#include "TavriCommon/Logger.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace Tavri::Log {
namespace {

constexpr int kDefaultThreshold = 3;

class SpdlogStderrLogger : public LoggerInterface {
public:
    SpdlogStderrLogger()
        : logger_(std::make_shared<spdlog::logger>("tavri", std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
        logger_->set_pattern("%H:%M:%S.%e [%l] %v");
        logger_->set_level(spdlog::level::trace);
        const char* level = std::getenv("TAVRI_LOG_LEVEL");
        if (!level || !*level) return;
        if (const auto parsed = parseLogLevel(level)) {
            threshold_ = *parsed;
        } else {
            // Said once: this logger is made once per process.
            logger_->warn(
                "TAVRI_LOG_LEVEL='{}' is not a log level (0-4, debug, info, notice, warning, critical); "
                "using {}",
                level, kDefaultThreshold);
        }
    }

    void log(int level, const char* file, int line, const std::string& text) override {
        if (level < threshold_) return;
        logger_->log(toSpdlog(level), "{} ({}:{})", text, file ? file : "?", line);
    }

private:
    static spdlog::level::level_enum toSpdlog(int level) {
        if (level <= 0) return spdlog::level::debug;
        if (level <= 2) return spdlog::level::info;
        if (level == 3) return spdlog::level::warn;
        return spdlog::level::critical;
    }

    std::shared_ptr<spdlog::logger> logger_;
    int threshold_ = kDefaultThreshold;
};

const std::shared_ptr<LoggerInterface>& defaultLogger() {
    static const std::shared_ptr<LoggerInterface> logger = std::make_shared<SpdlogStderrLogger>();
    return logger;
}

std::mutex installedMutex;
std::shared_ptr<LoggerInterface> installed;

// Set while this thread is inside an installed logger's log().
thread_local bool insideInstalled = false;

// What get() hands out: each call takes a share of the logger installed right then, so
// the logger cannot be destroyed under the call by an install() on another thread.
class Dispatcher : public LoggerInterface {
public:
    void log(int level, const char* file, int line, const std::string& text) override {
        if (insideInstalled) return defaultLogger()->log(level, file, line, text);
        std::shared_ptr<LoggerInterface> current;
        {
            std::lock_guard<std::mutex> lock(installedMutex);
            current = installed;
        }
        if (!current) return defaultLogger()->log(level, file, line, text);
        insideInstalled = true;
        try {
            current->log(level, file, line, text);
        } catch (...) {
            insideInstalled = false;
            throw;
        }
        insideInstalled = false;
    }
};

}  // namespace

std::optional<int> parseLogLevel(const std::string& text) {
    if (text.size() == 1 && text[0] >= '0' && text[0] <= '4') return text[0] - '0';
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    static const std::array<std::pair<const char*, int>, 7> names{{{"debug", 0},
                                                                    {"info", 1},
                                                                    {"notice", 2},
                                                                    {"warning", 3},
                                                                    {"warn", 3},
                                                                    {"critical", 4},
                                                                    {"fatal", 4}}};
    for (const auto& [name, level] : names)
        if (lower == name) return level;
    return std::nullopt;
}

LoggerInterface& GlobalLogger::get() {
    static Dispatcher dispatcher;
    return dispatcher;
}

std::shared_ptr<LoggerInterface> GlobalLogger::install(std::shared_ptr<LoggerInterface> logger) {
    std::lock_guard<std::mutex> lock(installedMutex);
    installed.swap(logger);
    return logger;
}

}  // namespace Tavri::Log
