#pragma once

#include "Simulation/Journal.h"
#include "Simulation/Ledger.h"
#include "Simulation/Random.h"
#include "Simulation/Wire.h"

#include <deque>
#include <memory>
#include <string>

class Machine;

/// The network between the machines and the relay, and how it behaves at present.
struct Network {
    MainLoop& loop;
    Random& random;
    Journal& journal;
    Ledger& ledger;
    SimulatedRelay& relay;
    std::deque<std::unique_ptr<Wire>>& wires;  // all that ever were, also those that have ended

    Seconds lowestLatency = 0.01;
    Seconds highestLatency = 0.1;
    double refusals = 0;      // share of the attempts to connect that are refused on the way
    Seconds slowestSend = 0;  // longest time until a send is reported as complete

    /// The server where the relay is.
    static const std::string server;
    /// One where nobody answers.
    static const std::string otherServer;

    Wire& open(Machine& machine, SimulatedConnection& client);
};
