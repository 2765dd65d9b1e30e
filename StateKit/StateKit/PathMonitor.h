#pragma once

#include <functional>

/// Watches whether this machine has a way to the network.
///
/// Main thread only. The handler runs on the main thread, first with the state at the start and then
/// at each update of the path, also when an update changes nothing. Destroying it ends the watch.
class PathMonitor {
public:
    virtual ~PathMonitor() = default;
    virtual void start(std::function<void(bool isSatisfied)> handler) = 0;
    virtual void cancel() = 0;
};
