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
/// Its turns last some milliseconds, so that a kill can lose what a turn has gathered.
class SimulatedRelay {
public:
    struct Nature {
        RelayLimits limits;
        Seconds turn = 0.002;  // how long a turn lasts at most
    };

    SimulatedRelay(MainLoop& loop, Random& random, Journal& journal, Ledger& ledger, SimulatedStore& store,
                   const std::deque<std::unique_ptr<Wire>>& wires, const Nature& nature);
    ~SimulatedRelay();

    void start();
    /// Shuts down in good order: what is not proved goes to the store, and every link is closed with a code.
    void shutDown();
    /// Ends the process as SIGKILL does. @param isMachineGone  nothing closes the connections, so that the
    ///        clients notice the end only by the silence
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
    std::vector<Wire*> touched;  // wires with something gathered in this turn
    std::optional<MainLoop::TimerId> wakeTimer;
    std::optional<MainLoop::TimerId> turnTimer;
};
