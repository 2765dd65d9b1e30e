#pragma once

#include "StateKit/MainLoop.h"

#include <memory>

/// The main loop on Qt's event loop, for the thread that makes it.
///
/// Make it after the `QCoreApplication` and destroy it before that one, and its users before it.
/// Work and timers also run inside nested event loops, such as a dialogue's. A timer never fires
/// early; its delay may be any number of seconds, also more than the 24 days that a Qt timer can hold.
/// Delays are measured on the clock that stands still while the machine sleeps.
class QtMainLoop : public MainLoop {
public:
    QtMainLoop();
    /// Drops what is queued and pending. No other thread may still post.
    ~QtMainLoop() override;

    bool isMainThread() const override;
    void post(std::function<void()> work) override;
    TimerId startTimer(Seconds delay, std::function<void()> action) override;
    void cancelTimer(TimerId timer) override;
    Date now() const override;

private:
    class Receiver;
    std::unique_ptr<Receiver> receiver;
};
