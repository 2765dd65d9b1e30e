#pragma once

#include "Simulation/Ledger.h"
#include "Simulation/Pipe.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class RelayLink;
class SimulatedConnection;
class SimulatedRelay;

/// One connection between a machine and the relay. The simulation keeps it after its end, for its checks.
class Wire {
public:
    Wire(MainLoop& loop, SimulatedRelay& relay, const SimulatedPerson& person, std::string machine,
         SimulatedConnection& client, int number, Seconds latency);

    /// Loses what is on its way and all that follows, in both directions. Each side learns of the end after
    /// its number of seconds; absent: never.
    void lose(std::optional<Seconds> clientLearns, std::optional<Seconds> relayLearns);

    const int number;
    const SimulatedPerson& person;
    const std::string machine;  // its name
    const Seconds latency;
    Pipe up;
    Pipe down;

    // ---- the client's side
    SimulatedConnection* client;  // null once it is destroyed, or has dialled again
    std::vector<Copy*> heard;     // packs that have arrived, in order
    std::size_t provedCount = 0;  // how many of `heard` a pong has proved to the relay

    // ---- the relay's side
    bool isOpen = false;  // to the relay's knowledge
    int incarnation = 0;  // of the relay that accepted it
    int framesSent = 0;
    std::optional<std::uint64_t> authenticatedAt;                        // `Ledger::readCount` when the relay let it in
    mutable std::map<const SimulatedPerson*, std::uint64_t> lastPlaces;  // of packs handed on, by author
    std::vector<WireItem> gathered;                                      // sent by the relay in this turn

    std::shared_ptr<RelayLink> relayEnd;  // what the relay's logic writes to; nobody else has a share

private:
    MainLoop& loop;
    SimulatedRelay& relay;
};
