#include "Simulation/Network.h"

#include "Simulation/Machine.h"

const std::string Network::server = "https://relay.example";
const std::string Network::otherServer = "https://nobody.example";

Wire& Network::open(Machine& machine, SimulatedConnection& client) {
    const int number = static_cast<int>(wires.size()) + 1;
    const Seconds latency = random.spread(lowestLatency, highestLatency);
    wires.push_back(std::make_unique<Wire>(loop, relay, machine.person, machine.name, client, number, latency));
    journal.line([&] { return machine.name + " dials link " + std::to_string(number); });
    wires.back()->up.push({.kind = WireItem::Kind::upgrade});
    return *wires.back();
}
