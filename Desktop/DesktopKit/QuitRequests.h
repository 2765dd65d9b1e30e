#pragma once

#include <functional>

#include <QObject>

/// Hears when the desktop or the toolkit asks the program to end, as a session manager does at a logout, and
/// has it end its own way instead of by closing one window after the other: a window that refuses to close,
/// being the last one where there is no tray, would keep the program running.
///
/// Main thread only. Make it after the QApplication.
class QuitRequests : public QObject {
public:
    /// @param quit  begins the end of the program; called for each request
    explicit QuitRequests(std::function<void()> quit);

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    const std::function<void()> quit;
};
