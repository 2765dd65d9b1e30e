#pragma once

#include "StateKit/ActivityMonitor.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"

#include <functional>
#include <memory>

/// The application's moves between foreground, background and end. Main thread only.
class Lifecycle : public SignalTarget {
public:
    enum class Event { enteredForeground, enteredBackground, terminated };

    /// Observing begins here.
    Lifecycle(MainLoop& loop, std::unique_ptr<ActivityMonitor> activity);

    /// The process's one instance, made at first use by what `configureShared` was given.
    static Lifecycle& shared();
    /// Says how the shared instance is made. Once, before the first use.
    static void configureShared(std::function<std::unique_ptr<Lifecycle>()> make);

    /// Whether the application is in the foreground now.
    bool isActive() const { return activity->isActive(); }

    template <class Target>
    void subscribe(Target& target, std::type_identity_t<std::function<void(Target&, const Event&)>> action) {
        subs.subscribe(target, std::move(action));
    }

private:
    Signal<Event> subs;
    std::unique_ptr<ActivityMonitor> activity;
};
