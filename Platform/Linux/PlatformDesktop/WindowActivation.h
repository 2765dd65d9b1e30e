#pragma once

#include <QString>

class QWidget;

/// What a desktop hands to a program that it starts, and that lets the program's window come to the front.
///
/// A desktop keeps windows that come forward by themselves in the back; a token proves that somebody asked.
/// It is good for one use.
struct ActivationToken {
    QString activation;  ///< of xdg-activation; empty without one
    QString startupId;   ///< of the X11 startup notification; empty without one

    bool operator==(const ActivationToken&) const = default;

    /// Longest token that is taken from others, in UTF-16 units.
    static constexpr int longest = 1024;

    /// Of XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID, which stay as they are.
    ///
    /// Call it before the `QGuiApplication` is made: under X11 Qt takes the second away.
    static ActivationToken fromEnvironment();

    /// The text if it can be a token: printable ASCII of at most `longest` characters. Otherwise empty.
    static QString checked(const QString& text);
};

/// Shows the window of that widget, takes it out of the task bar if it is minimised, and asks the desktop to bring
/// it to the front and give it the keyboard.
///
/// Without a token, or with one that has been used, a desktop may only mark the window as wanting attention.
/// Under Wayland the token reaches the desktop. Under X11 Qt has no way to pass a startup id on: the window manager
/// decides by the time of our last input. Main thread, with a QApplication.
void bringForward(QWidget& widget, const ActivationToken& token);
