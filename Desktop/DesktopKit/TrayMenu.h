#pragma once

#include <functional>

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>

/// The icon in the desktop's tray, which keeps a program without windows within reach.
///
/// A tray may come after the program, such as while a session starts: it is looked for every few seconds
/// until there is one.
class TrayMenu : public QObject {
public:
    /// @param menu  opened by the icon; must outlive this object
    /// @param activated  the icon itself was clicked
    TrayMenu(QMenu& menu, std::function<void()> activated);

    /// Whether the icon can be seen now.
    bool isShown();

private:
    void look();

    std::function<void()> activated;
    QSystemTrayIcon icon;
    QTimer timer;
};
