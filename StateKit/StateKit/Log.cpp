#include "StateKit/Log.h"

#include <cstdio>

namespace {

std::shared_ptr<LogSink>& sharedSink() {
    static std::shared_ptr<LogSink> sink;
    return sink;
}

}  // namespace

std::shared_ptr<LogSink> Log::setSink(std::shared_ptr<LogSink> sink) {
    std::swap(sharedSink(), sink);
    return sink;
}

void Log::write(LogLevel level, std::string_view message) const {
    if (const auto& sink = sharedSink()) {
        sink->write(level, subsystem, category, message);
    } else if (level == LogLevel::error) {
        std::fprintf(stderr, "%.*s/%.*s: %.*s\n", static_cast<int>(subsystem.size()), subsystem.data(),
                     static_cast<int>(category.size()), category.data(), static_cast<int>(message.size()),
                     message.data());
    }
}

DebugLines::Print DebugLines::current = nullptr;

DebugLines::Print DebugLines::setPrint(Print print) {
    const Print before = current;
    current = print;
    return before;
}
