#pragma once

#include "PlatformCore/SystemLog.h"

/// The engine's log for a user at a terminal: errors, but not those of the link, which the session reports
/// itself (`TerminalSession::trouble`); everything with `--debug`. Any thread.
class TerminalLog : public LogSink {
public:
    explicit TerminalLog(bool isDebug);

    void write(LogLevel level, std::string_view subsystem, std::string_view category,
               std::string_view message) override;

private:
    SystemLog log;
    const bool isDebug;
};
