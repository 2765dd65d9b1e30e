#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/PathMonitor.h"
#include "StateKit/Signal.h"

#include <functional>
#include <memory>

/// Whether the network is usable. Subscribers hear it at each update of the path, also when nothing changed.
///
/// Offline until the first report. Main thread only.
class Internets : public SignalTarget {
public:
    enum class Status { online, offline };

    Internets(MainLoop& loop, std::unique_ptr<PathMonitor> monitor);
    /// Stops the watch.
    ~Internets();

    /// The process's one instance, made and started at first use by what `configureShared` was given.
    static Internets& shared();
    /// Says how the shared instance is made. Once, before the first use.
    static void configureShared(std::function<std::unique_ptr<Internets>()> make);

    template <class Target>
    void subscribe(Target& target, std::type_identity_t<std::function<void(Target&, const Status&)>> action) {
        signal.subscribe(target, std::move(action));
    }

    void start();
    void stop();

    Status status() const { return _status; }

private:
    void pathUpdated(bool isSatisfied);

    Status _status = Status::offline;
    Signal<Status> signal;
    std::unique_ptr<PathMonitor> monitor;
};
