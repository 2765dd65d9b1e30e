#pragma once

#include "StateKit/Date.h"

#include <cstdint>
#include <functional>

/// The event loop of the main thread, with only what the engine needs of one.
///
/// Nothing in the engine asks the system for the time, a timer or a thread in any other way, so that
/// the same code runs on Qt's loop and on a loop whose clock is a variable.
class MainLoop {
public:
    /// Names a pending timer; never reused within one loop, never 0.
    using TimerId = std::uint64_t;

    virtual ~MainLoop() = default;

    /// May be called on any thread.
    virtual bool isMainThread() const = 0;

    /// Runs `work` on the main thread, after what was posted before it. May be called on any thread.
    /// Work that is still queued when the loop dies is dropped.
    virtual void post(std::function<void()> work) = 0;

    /// Calls `action` once, `delay` seconds from now; at the loop's next turn if that is not positive.
    /// Main thread only. The loop owns the action until then, and drops it unrun when it dies.
    virtual TimerId startTimer(Seconds delay, std::function<void()> action) = 0;

    /// Drops a pending timer; nothing happens for one that has fired or been dropped. Main thread only.
    virtual void cancelTimer(TimerId timer) = 0;

    /// The wall clock.
    virtual Date now() const = 0;
};

/// A pending one-shot timer that is dropped with its holder. Main thread only.
class Timer {
public:
    [[nodiscard]] Timer(MainLoop& loop, Seconds delay, std::function<void()> action)
        : loop(loop), id(loop.startTimer(delay, std::move(action))) {}
    ~Timer() { loop.cancelTimer(id); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

private:
    MainLoop& loop;
    MainLoop::TimerId id;
};
