#pragma once

#include "Simulation/Journal.h"
#include "Simulation/Ledger.h"
#include "Simulation/Machine.h"
#include "Simulation/Network.h"
#include "Simulation/Random.h"
#include "Simulation/SimulatedRelay.h"
#include "Simulation/SimulatedStore.h"

#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"

#include <deque>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// All objects of one run, made from its random source. They are destroyed in the order that they need:
/// the machines first, the loop last.
class World {
public:
    World(std::uint64_t seed, std::ostream* trace);
    ~World();

    Date now() const { return loop.now(); }
    bool isMember(const SimulatedPerson& person) const { return store.member(person.publicKey) != nullptr; }
    /// Makes a text that was never said before. @param size  of its padding, in bytes
    const SaidText& newText(const std::string& author, bool isForRoom, std::size_t size);
    /// Changes the members as another process does, on the relay's command line.
    void addOnCommandLine(const SimulatedPerson& person, bool isAdmin);
    void removeOnCommandLine(const SimulatedPerson& person);

    Random random;
    TestLoop loop;
    Journal journal;
    TemporaryFolder folder;
    SimulatedStore store;
    std::deque<SimulatedPerson> people;
    Ledger ledger;
    std::deque<std::unique_ptr<Wire>> wires;
    SimulatedRelay relay;
    Network network;
    std::deque<SaidText> texts;
    std::vector<std::unique_ptr<Machine>> machines;
    std::size_t kills = 0;

private:
    static std::uint64_t prepared(std::uint64_t seed);
    SimulatedRelay::Nature relayNature();
    void makePeople();
    void makeMachines();
};
