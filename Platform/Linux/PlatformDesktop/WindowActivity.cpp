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
    isActive = QGuiApplication::applicationState() == Qt::ApplicationActive;
    stateConnection = QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, qGuiApp,
                                       [this, handlers = std::move(handlers)](Qt::ApplicationState state) {
                                           // Other states come and go between the two, such as while a window opens.
                                           const bool isInFront = state == Qt::ApplicationActive;
                                           if (std::exchange(isActive, isInFront) == isInFront) return;
                                           (isInFront ? handlers.didBecomeActive : handlers.willResignActive)();
                                       });
}
