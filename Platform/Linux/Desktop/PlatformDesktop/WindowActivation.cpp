#include "PlatformDesktop/WindowActivation.h"

#include <QGuiApplication>
#include <QWidget>
#include <QWindow>

#include <algorithm>

ActivationToken ActivationToken::fromEnvironment() {
    return {checked(qEnvironmentVariable("XDG_ACTIVATION_TOKEN")), checked(qEnvironmentVariable("DESKTOP_STARTUP_ID"))};
}

QString ActivationToken::checked(const QString& text) {
    const bool isPrintable =
        std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() > 0x20 && c.unicode() < 0x7f; });
    return isPrintable && text.size() <= longest ? text : QString();
}

void bringForward(QWidget& widget, const ActivationToken& token) {
    QWidget* window = widget.window();
    // Qt's Wayland platform takes the token from the environment when a window is shown or activated, and removes it.
    // Other platforms do not remove it, and a program that we start must not find it there.
    if (!token.activation.isEmpty() && QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        qputenv("XDG_ACTIVATION_TOKEN", token.activation.toLatin1());
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
}
