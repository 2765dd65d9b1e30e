#include "DesktopKit/QuitRequests.h"

#include <QCoreApplication>
#include <QEvent>

#include <utility>

QuitRequests::QuitRequests(std::function<void()> quit) : quit(std::move(quit)) { qApp->installEventFilter(this); }

bool QuitRequests::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::Quit || object != qApp) return false;
    event->accept();
    quit();
    return true;
}
