#include "DesktopKit/TrayMenu.h"

#include <QApplication>

#include <chrono>
#include <utility>

TrayMenu::TrayMenu(QMenu& menu, std::function<void()> wasActivated) : activated(std::move(wasActivated)) {
    icon.setIcon(QApplication::windowIcon());
    icon.setToolTip(QApplication::applicationName());
    icon.setContextMenu(&menu);
    connect(&icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) activated();
    });
    timer.setInterval(std::chrono::seconds(5));
    connect(&timer, &QTimer::timeout, this, &TrayMenu::look);
    look();
}

bool TrayMenu::isShown() {
    look();
    return icon.isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayMenu::look() {
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        icon.show();
        timer.stop();
    } else if (!timer.isActive()) {
        timer.start();
    }
}
