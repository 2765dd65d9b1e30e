#pragma once

#include <QString>

class QWidget;

/// A token that a desktop gives to a program which it starts; it lets the program's window come to the front.
///
/// Desktops keep a window in the back that comes forward by itself; a token proves that the user asked for it.
/// A token is good for one use.
struct ActivationToken {
    QString activation;  ///< the token of xdg-activation; empty if there is none
    QString startupId;   ///< the id of X11 startup notification; empty if there is none

    bool operator==(const ActivationToken&) const = default;

    /// The longest token that is accepted, in UTF-16 units.
    static constexpr int longest = 1024;

    /// The token in XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID; both variables are left as they are.
    ///
    /// Call it before the `QGuiApplication` is made: under X11 Qt removes DESKTOP_STARTUP_ID.
    static ActivationToken fromEnvironment();

    /// Returns the text if it can be a token: printable ASCII of at most `longest` characters. Otherwise empty.
    static QString checked(const QString& text);
};

/// Shows the window of that widget, takes it out of the task bar if it is minimised, and asks the desktop to bring
/// it to the front and give it the keyboard.
///
/// Without a token, or with one that has been used, a desktop may only mark the window as wanting attention.
/// Under Wayland the token reaches the desktop. Under X11 Qt has no way to pass a startup id on: the window manager
/// decides by the time of our last input. Main thread, with a QApplication.
void bringForward(QWidget& widget, const ActivationToken& token);
