#include "PlatformCore/QtMessages.h"

#include "QtText/QtText.h"
#include "StateKit/Log.h"

#include <QtGlobal>

namespace {

const Log qtLog("Qt", "Qt");

void takeMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    switch (type) {
        case QtDebugMsg:
        case QtInfoMsg:
        // Warnings count as debug messages: Qt warns of much that does no harm, such as an unusual locale.
        case QtWarningMsg: qtLog.debug(fromQt(message)); return;
        case QtCriticalMsg:
        case QtFatalMsg: qtLog.error(fromQt(message)); return;
    }
}

}  // namespace

void QtMessages::toLog() { qInstallMessageHandler(takeMessage); }
