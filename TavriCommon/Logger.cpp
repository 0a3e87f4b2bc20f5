#include "TavriCommon/Logger.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <mutex>

namespace Tavri::Log {
namespace {

class SpdlogStderrLogger : public LoggerInterface {
public:
    SpdlogStderrLogger() : logger_(std::make_shared<spdlog::logger>(
                               "tavri", std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
        const char* level = std::getenv("TAVRI_LOG_LEVEL");
        threshold_ = level && *level ? std::atoi(level) : 3;
        logger_->set_pattern("%H:%M:%S.%e [%l] %v");
        logger_->set_level(spdlog::level::trace);
    }

    void log(int level, const char* file, int line, const std::string& text) override {
        if (level < threshold_) return;
        logger_->log(toSpdlog(level), "{} ({}:{})", text, file, line);
    }

private:
    static spdlog::level::level_enum toSpdlog(int level) {
        if (level <= 0) return spdlog::level::debug;
        if (level <= 2) return spdlog::level::info;
        if (level == 3) return spdlog::level::warn;
        return spdlog::level::critical;
    }

    std::shared_ptr<spdlog::logger> logger_;
    int threshold_;
};

std::mutex installedMutex;
std::shared_ptr<LoggerInterface> installed;

LoggerInterface& defaultLogger() {
    static SpdlogStderrLogger logger;
    return logger;
}

}  // namespace

LoggerInterface& GlobalLogger::get() {
    std::lock_guard<std::mutex> lock(installedMutex);
    return installed ? *installed : defaultLogger();
}

std::shared_ptr<LoggerInterface> GlobalLogger::install(std::shared_ptr<LoggerInterface> logger) {
    std::lock_guard<std::mutex> lock(installedMutex);
    installed.swap(logger);
    return logger;
}

}  // namespace Tavri::Log
