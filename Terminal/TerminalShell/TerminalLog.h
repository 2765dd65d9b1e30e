#pragma once

#include "PlatformCore/SystemLog.h"

/// What the engine logs, as somebody at a terminal wants it: errors, but not those of the link, which
/// they are told in words of their own; everything with `--debug`. Any thread.
class TerminalLog : public LogSink {
public:
    explicit TerminalLog(bool isDebug);

    void write(LogLevel level, std::string_view subsystem, std::string_view category,
               std::string_view message) override;

private:
    SystemLog log;
    const bool isDebug;
};
