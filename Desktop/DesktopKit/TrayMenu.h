#pragma once

#include <functional>

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>

/// The icon in the desktop's tray, through which the user reaches the program while no window is open.
///
/// The tray may start after the program, for example at the start of a session, so this object looks for it
/// every few seconds until there is one.
class TrayMenu : public QObject {
public:
    /// @param menu  the icon's menu; must outlive this object
    /// @param activated  called when the icon itself was clicked
    TrayMenu(QMenu& menu, std::function<void()> activated);

    /// Whether the icon can be seen now.
    bool isShown();

private:
    void look();

    std::function<void()> activated;
    QSystemTrayIcon icon;
    QTimer timer;
};
