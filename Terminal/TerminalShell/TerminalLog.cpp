#include "TerminalShell/TerminalLog.h"

#include "Text/Text.h"

TerminalLog::TerminalLog(bool isDebug)
    : log(SystemLog::Destination::standardError, isDebug ? LogLevel::debug : LogLevel::error, "vimble-terminal"),
      isDebug(isDebug) {}

void TerminalLog::write(LogLevel level, std::string_view subsystem, std::string_view category,
                        std::string_view message) {
    const bool isOfTheLink = subsystem == "StateKit" && category == "Websocket";
    // Escape the message: it may hold text from a server, such as the reason of a close.
    if (isDebug || !isOfTheLink) log.write(level, subsystem, category, Text::escaped(message));
}
