#pragma once

#include "Simulation/Journal.h"
#include "Simulation/Ledger.h"
#include "Simulation/Random.h"
#include "Simulation/Wire.h"

#include <deque>
#include <memory>
#include <string>

class Machine;

/// What lies between the machines and the relay, and how it behaves at present.
struct Network {
    MainLoop& loop;
    Random& random;
    Journal& journal;
    Ledger& ledger;
    SimulatedRelay& relay;
    std::deque<std::unique_ptr<Wire>>& wires;  // every one that there was

    Seconds lowestLatency = 0.01;
    Seconds highestLatency = 0.1;
    double refusals = 0;      // share of attempts that somebody on the way refuses
    Seconds slowestSend = 0;  // until a message that was sent is handed over, at most

    /// The server where the relay is.
    static const std::string server;
    /// One where nobody answers.
    static const std::string otherServer;

    Wire& open(Machine& machine, SimulatedConnection& client);
};
