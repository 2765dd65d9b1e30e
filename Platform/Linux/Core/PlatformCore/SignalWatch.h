#pragma once

#include "Base/FileDescriptor.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>

/// Hears the signals by which a program is asked to end: SIGINT, SIGTERM and SIGHUP.
///
/// A signal that was ignored when the program started stays ignored, as nohup(1) and shells want it.
/// A process may have only one at a time. Make it on the main thread, after the `QCoreApplication`.
class SignalWatch {
public:
    /// @param came  called by the loop, once for one signal or for several
    explicit SignalWatch(std::function<void()> came);
    /// Puts the signals back to what they did before.
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// Whether a signal has come, even if the loop has not called `came` yet. For code that blocks: after
    /// EINTR it asks this.
    static bool hasCome();

private:
    std::function<void()> came;
    FileDescriptor readEnd;
    std::unique_ptr<QSocketNotifier> notifier;
};
