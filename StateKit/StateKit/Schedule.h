#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"

#include <memory>
#include <optional>
#include <string>

/// A time of day in some zone.
struct TimeOfDay {
    int hour = 0;    // 0 to 23
    int minute = 0;  // 0 to 59
    int second = 0;  // 0 to 59
};

/// Fires once a day at a given time of day, for as long as it exists.
///
/// Where a change to summer time skips the time, it fires at the first instant that exists after it;
/// where a change back repeats it, at the first of the two. When the clock is set back while it waits, it
/// waits for the time by the new clock; when the clock is set forward past the time, it fires late, when
/// the seconds that it had computed before are over.
///
/// Main thread only; destroying it stops it.
class Schedule : public SignalTarget {
public:
    /// @param timezone  an identifier such as "Europe/Zurich"; with an unknown one the schedule never fires
    Schedule(MainLoop& loop, TimeOfDay timeOfDay, std::string timezone);

    template <class Target>
    void subscribe(Target& target, void (Target::*action)()) {
        signal.subscribe(target, action);
    }

    /// Arms the timer for the next occurrence after now, dropping a pending one.
    void start();

private:
    void arm();
    void fire();

    MainLoop& loop;
    TimeOfDay timeOfDay;
    std::string timezone;
    Signal<NoValue> signal;
    std::optional<Date> due;  // what the timer waits for
    std::unique_ptr<Timer> timer;
};
