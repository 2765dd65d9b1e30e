#include "PlatformDesktop/WindowActivity.h"

#include <QGuiApplication>

#include <utility>

WindowActivity::~WindowActivity() {
    QObject::disconnect(stateConnection);
    QObject::disconnect(endConnection);
}

void WindowActivity::observe(Handlers handlers) {
    endConnection =
        QObject::connect(qGuiApp, &QCoreApplication::aboutToQuit, qGuiApp, [tell = handlers.willTerminate] { tell(); });
    isInFront = QGuiApplication::applicationState() == Qt::ApplicationActive;
    stateConnection = QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, qGuiApp,
                                       [this, handlers = std::move(handlers)](Qt::ApplicationState state) {
                                           // Other states can come in between, such as while a window opens.
                                           const bool isNow = state == Qt::ApplicationActive;
                                           if (std::exchange(isInFront, isNow) == isNow) return;
                                           (isNow ? handlers.didBecomeActive : handlers.willResignActive)();
                                       });
}
