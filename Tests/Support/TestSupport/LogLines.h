#pragma once

#include "StateKit/Log.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Gathers what is logged for as long as it exists, as lines "error StateKit/Signal: text".
class LogLines {
public:
    LogLines() : sink(std::make_shared<Sink>()), before(Log::setSink(sink)) {}
    ~LogLines() { Log::setSink(before); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::lock_guard lock(sink->mutex);
        return std::exchange(sink->lines, {});
    }

private:
    struct Sink : LogSink {
        void write(LogLevel level, std::string_view subsystem, std::string_view category,
                   std::string_view message) override {
            std::string line = name(level);
            line.append(" ").append(subsystem).append("/").append(category).append(": ").append(message);
            const std::lock_guard lock(mutex);
            lines.push_back(std::move(line));
        }
        static const char* name(LogLevel level) {
            switch (level) {
                case LogLevel::debug: return "debug";
                case LogLevel::info: return "info";
                case LogLevel::error: return "error";
            }
            return "";
        }

        std::mutex mutex;
        std::vector<std::string> lines;
    };

    std::shared_ptr<Sink> sink;
    std::shared_ptr<LogSink> before;
};
