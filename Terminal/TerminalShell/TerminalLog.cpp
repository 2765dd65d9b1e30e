#include "TerminalShell/TerminalLog.h"

#include "PlatformCore/Text.h"
#include "VimbleKit/Text.h"

#include <QtGlobal>

namespace {

const Log qtLog("Qt", "Qt");

void takeMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    switch (type) {
        case QtDebugMsg:
        case QtInfoMsg:
        // Qt warns of much that is no trouble, such as a locale that it does not care for.
        case QtWarningMsg: qtLog.debug(fromQt(message)); return;
        case QtCriticalMsg:
        case QtFatalMsg: qtLog.error(fromQt(message)); return;
    }
}

}  // namespace

TerminalLog::TerminalLog(bool isDebug)
    : log(SystemLog::Destination::standardError, isDebug ? LogLevel::debug : LogLevel::error, "vimble-terminal"),
      isDebug(isDebug) {}

void TerminalLog::write(LogLevel level, std::string_view subsystem, std::string_view category,
                        std::string_view message) {
    const bool isOfTheLink = subsystem == "StateKit" && category == "Websocket";
    // A server's words may stand in it, such as the reason of a close.
    if (isDebug || !isOfTheLink) log.write(level, subsystem, category, Text::escaped(message));
}

void TerminalLog::takeQtMessages() { qInstallMessageHandler(takeMessage); }
