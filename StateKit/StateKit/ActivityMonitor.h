#pragma once

#include <functional>

/// The application's moves between foreground, background and end, as this machine tells them.
///
/// Main thread only. Destroying it ends the watch.
class ActivityMonitor {
public:
    struct Handlers {
        std::function<void()> didBecomeActive;
        std::function<void()> willResignActive;
        std::function<void()> willTerminate;
    };

    virtual ~ActivityMonitor() = default;
    virtual void observe(Handlers handlers) = 0;
    /// Whether the application is in the foreground, as the handlers have been told; false for a program that
    /// is neither in front nor behind.
    virtual bool isActive() const = 0;
};
