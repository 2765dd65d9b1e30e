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

/// One connection between a machine and the relay, from the dialling until long after its end: the
/// simulation keeps it as a witness.
class Wire {
public:
    Wire(MainLoop& loop, SimulatedRelay& relay, const SimulatedPerson& person, std::string machine,
         SimulatedConnection& client, int number, Seconds latency);

    /// Loses what is on its way and all that follows, in both directions. Each side learns of it after
    /// so many seconds, or never.
    void lose(std::optional<Seconds> clientLearns, std::optional<Seconds> relayLearns);

    const int number;
    const SimulatedPerson& person;
    const std::string machine;  // its name
    const Seconds latency;
    Pipe up;
    Pipe down;

    // ---- the client's side
    SimulatedConnection* client;  // null once it has gone, or has dialled again
    std::vector<Copy*> heard;     // packs that have arrived, in order
    std::size_t provedCount = 0;  // how many of them the relay knows of

    // ---- the relay's side
    bool isOpen = false;  // to the relay's knowledge
    int incarnation = 0;  // of the relay that accepted it
    int framesSent = 0;
    std::optional<std::uint64_t> authenticatedAt;                        // `Ledger::readCount` when the relay let it in
    mutable std::map<const SimulatedPerson*, std::uint64_t> lastPlaces;  // of packs handed on, by author
    std::vector<WireItem> gathered;                                      // sent by the relay in this turn

    std::shared_ptr<RelayLink> relayEnd;  // as the relay's logic holds it; nobody else has a share

private:
    MainLoop& loop;
    SimulatedRelay& relay;
};
