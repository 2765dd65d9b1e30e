#pragma once

#include <functional>

#include <QObject>

/// Catches requests of the desktop or the toolkit to end the program, as a session manager makes at a logout,
/// and ends it in our own way. The toolkit would close one window after the other, and a window that refuses to
/// close, as the last one does if there is no tray, would keep the program running.
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
