#include "Simulation/Wire.h"

#include "Simulation/SimulatedConnection.h"
#include "Simulation/SimulatedRelay.h"

#include <utility>

Wire::Wire(MainLoop& loop, SimulatedRelay& relay, const SimulatedPerson& person, std::string machine,
           SimulatedConnection& client, int number, Seconds latency)
    : number(number),
      person(person),
      machine(std::move(machine)),
      latency(latency),
      up(loop, latency, [this](WireItem item) { this->relay.arrived(*this, std::move(item)); }),
      down(loop, latency,
           [this](WireItem item) {
               if (this->client) this->client->arrived(std::move(item));
           }),
      client(&client),
      loop(loop),
      relay(relay) {}

void Wire::lose(std::optional<Seconds> clientLearns, std::optional<Seconds> relayLearns) {
    up.cut();
    down.cut();
    if (clientLearns)
        loop.startTimer(*clientLearns, [this] {
            if (client) client->arrived({.kind = WireItem::Kind::end});
        });
    if (relayLearns) loop.startTimer(*relayLearns, [this] { relay.ended(*this); });
}
