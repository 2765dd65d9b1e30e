#pragma once

#include <QSocketNotifier>

#include <functional>
#include <memory>

/// Hears the signals by which a program is asked to end: SIGINT, SIGTERM and SIGHUP.
///
/// A signal that was ignored when the program started stays ignored, as nohup(1) and shells want it.
/// One at a time in a process, made on the main thread after the `QCoreApplication`.
class SignalWatch {
public:
    /// @param came  called by the loop, for each signal or several at once
    explicit SignalWatch(std::function<void()> came);
    /// Puts the signals back to what they did before.
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// Whether one has come, also if the loop does not know yet: whoever blocks asks this at EINTR.
    static bool hasCome();

private:
    std::function<void()> came;
    int readEnd = -1;
    std::unique_ptr<QSocketNotifier> notifier;
};
