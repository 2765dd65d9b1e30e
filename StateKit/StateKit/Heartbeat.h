#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"

#include <functional>
#include <memory>
#include <optional>

/// Gathers a burst of requests into one firing, `interval` after the last.
///
/// The session writes its state through this, so that fifty changes in a second cost one write. A
/// steady stream does not put the firing off for ever: the first `beat` that finds a request more than
/// 30 seconds old fires at once, inside that call.
///
/// Main thread only. A pending timer keeps the object alive until it fires, so it is made by `make`.
class Heartbeat : public std::enable_shared_from_this<Heartbeat> {
public:
    /// @param interval  quiet time before the firing, in seconds
    /// @param maxDelay  kept for callers to read; the bound is 30 seconds whatever it says
    [[nodiscard]] static std::shared_ptr<Heartbeat> make(MainLoop& loop, Seconds interval,
                                                         std::optional<Seconds> maxDelay = {});

    template <class Target>
    void subscribe(Target& target, void (Target::*action)()) {
        fired.subscribe(target, action);
    }
    void unsubscribe(const SignalTarget& target) { fired.unsubscribe(target); }

    /// Asks for a firing. Only the completion of the call that fires is run; those of earlier calls are
    /// dropped with their timers.
    void beat(std::function<void()> completion = {});

    const Seconds interval;
    const std::optional<Seconds> maxDelay;

private:
    Heartbeat(MainLoop& loop, Seconds interval, std::optional<Seconds> maxDelay);
    void fire(const std::function<void()>& completion);

    MainLoop& loop;
    std::optional<MainLoop::TimerId> timer;
    std::optional<Date> firstReq;  // when the oldest unserved request came
    Signal<NoValue> fired;
};
