#pragma once

#include "StateKit/Internets.h"
#include "StateKit/SignalTarget.h"

#include <functional>
#include <memory>

/// Carries what the process's one watch of the network says to other threads.
///
/// Made and destroyed on the main thread; must not outlive the `Internets`.
class Reachability : public SignalTarget {
public:
    explicit Reachability(Internets& internets);

    /// Any thread. `report` is called at once with what was said last, and then at each word, on the main thread.
    /// It must not block, nor drop the handle.
    /// @return ends the watch when dropped, on any thread: it waits for a report that is under way
    std::shared_ptr<void> watch(std::function<void(bool isReachable)> report);

private:
    struct Listeners;
    std::shared_ptr<Listeners> listeners;
};
