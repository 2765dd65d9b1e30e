#pragma once

#include "Simulation/Journal.h"
#include "Simulation/Ledger.h"
#include "Simulation/Random.h"
#include "Simulation/SimulatedStore.h"
#include "Simulation/Wire.h"

#include "RelayCore/RelayCounters.h"
#include "RelayCore/RelayLimits.h"
#include "StateKit/MainLoop.h"

#include <deque>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

/// The relay's process: a `RelayCore` with simulated links, which can be stopped, killed and started.
///
/// Its turns last for some milliseconds, so that what a turn gathers can be lost with the process.
class SimulatedRelay {
public:
    struct Nature {
        RelayLimits limits;
        Seconds turn = 0.002;  // the longest
    };

    SimulatedRelay(MainLoop& loop, Random& random, Journal& journal, Ledger& ledger, SimulatedStore& store,
                   const std::deque<std::unique_ptr<Wire>>& wires, const Nature& nature);
    ~SimulatedRelay();

    void start();
    /// In good order: what is not proved goes to the store, and every link is told.
    void shutDown();
    /// As by SIGKILL. @param isMachineGone  nobody closes the connections: their other ends learn of
    ///        nothing until they try
    void kill(bool isMachineGone);
    bool isRunning() const { return process != nullptr; }
    /// Whether the store has failed and is not yet known to work again.
    bool isAiling() const;
    RelayGauges gauges() const;
    void membersChanged();

    // ---- for the wires
    void arrived(Wire& wire, WireItem item);
    /// The connection has ended without a word.
    void ended(Wire& wire);
    void sent(Wire& wire, ByteView frame);
    void gather(Wire& wire, WireItem item);
    void closed(Wire& wire, int code);

private:
    struct Process;
    class LinkEnd;

    void wakeAt(Date when);
    void turn();
    void endTurn();
    void write();
    void forgetTimers();
    void stopped(std::string_view how, bool isMachineGone, bool isTold);
    void checkCounters();

    MainLoop& loop;
    Random& random;
    Journal& journal;
    Ledger& ledger;
    SimulatedStore& store;
    const std::deque<std::unique_ptr<Wire>>& wires;
    const Nature nature;
    std::unique_ptr<Process> process;
    int incarnation = 0;
    bool isStopping = false;
    std::vector<Wire*> touched;  // with something gathered
    std::optional<MainLoop::TimerId> wakeTimer;
    std::optional<MainLoop::TimerId> turnTimer;
};
