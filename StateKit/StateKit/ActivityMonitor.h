#pragma once

#include <functional>

/// Watches when the application moves to the foreground or the background, and when it ends.
///
/// Main thread only. Destroying the monitor ends the watch.
class ActivityMonitor {
public:
    struct Handlers {
        std::function<void()> didBecomeActive;
        std::function<void()> willResignActive;
        std::function<void()> willTerminate;
    };

    virtual ~ActivityMonitor() = default;
    virtual void observe(Handlers handlers) = 0;
    /// Whether the application is in the foreground, by what the handlers have last been told; always false
    /// for a program without windows.
    virtual bool isActive() const = 0;
};
