#pragma once

#include "StateKit/Internets.h"
#include "StateKit/SignalTarget.h"

#include <functional>
#include <memory>

/// Lets other threads ask for the reports of the process's one watch of the network.
///
/// Made and destroyed on the main thread; must not outlive the `Internets`.
class Reachability : public SignalTarget {
public:
    explicit Reachability(Internets& internets);

    /// Any thread. `report` is called within this call with what was last reported, and then on the main thread at
    /// each report. It must not block, nor drop the handle.
    /// @return a handle, which ends the watch when it is dropped, on any thread; dropping it waits for a call of
    ///         `report` that is under way
    std::shared_ptr<void> watch(std::function<void(bool isReachable)> report);

private:
    struct Listeners;
    std::shared_ptr<Listeners> listeners;
};
