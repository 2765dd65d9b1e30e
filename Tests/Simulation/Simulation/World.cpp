#include "Simulation/World.h"

#include <cstdlib>
#include <filesystem>

namespace {

constexpr std::size_t fewestPeople = 5;
constexpr std::size_t mostPeople = 10;

}  // namespace

World::World(std::uint64_t seed, std::ostream* trace)
    : random(prepared(seed)),
      journal(loop, trace),
      ledger(loop, journal, store, people),
      relay(loop, random, journal, ledger, store, wires, relayNature()),
      network{loop, random, journal, ledger, relay, wires} {
    // In some worlds all machines are near the relay, so that much happens within the milliseconds in which the relay
    // gathers lists.
    const bool isNear = random.chance(0.25);
    network.lowestLatency = isNear ? 0.0001 : 0.01;
    network.highestLatency = isNear ? 0.001 : random.spread(0.02, 0.5);
    makePeople();
    makeMachines();
}

/// Puts the clients' folders into memory, if the system has a place for that and TMPDIR is not set: thousands of
/// small files replace each other, and the file system of a disk would wait for each.
std::uint64_t World::prepared(std::uint64_t seed) {
    std::error_code ignored;
    if (std::filesystem::is_directory("/dev/shm", ignored)) ::setenv("TMPDIR", "/dev/shm", 0);
    return seed;
}

World::~World() { machines.clear(); }

SimulatedRelay::Nature World::relayNature() {
    SimulatedRelay::Nature nature;
    nature.turn = random.spread(0.0001, 0.02);
    // Some relays have tight limits: even if a key sends too much, or a reader is too slow, nothing that was read is
    // lost.
    if (random.chance(0.2)) nature.limits.textsPerSecond = random.between(1, 5);
    if (random.chance(0.2)) nature.limits.queuedBytes = 400 * 1024;
    return nature;
}

void World::makePeople() {
    const std::size_t count = fewestPeople + random.below(mostPeople - fewestPeople + 1);
    for (std::size_t i = 0; i < count; ++i) {
        SecretKey secret;
        random.fill(secret.writable());
        SimulatedPerson person;
        person.index = static_cast<int>(i);
        person.letter = std::string(1, static_cast<char>('A' + i));
        person.publicKey = Nacl::publicKey(secret);
        person.publicKeyText = Nacl::hex(person.publicKey);
        person.secretKeyText = Nacl::hex(secret.view());
        people.push_back(std::move(person));
        journal.line([&] { return people.back().letter + " is " + people.back().publicKeyText; });
    }
    // The first stays an admin all the time, so that there is always somebody who can admit others.
    for (const SimulatedPerson& person : people)
        if (person.index == 0 || random.chance(0.8))
            store.putMember({person.publicKey, person.index == 0 || random.chance(0.2)});
}

void World::makeMachines() {
    for (const SimulatedPerson& person : people) {
        const int count = random.chance(0.2) ? 2 : 1;
        for (int i = 0; i < count; ++i) {
            const std::string name = person.letter + (i == 0 ? "" : std::to_string(i + 1));
            machines.push_back(std::make_unique<Machine>(network, person, name, folder.path / name));
        }
    }
}

const SaidText& World::newText(const std::string& author, bool isForRoom, std::size_t size) {
    SaidText text;
    text.number = static_cast<int>(texts.size()) + 1;
    text.content = "text " + std::to_string(text.number) + " from " + author + std::string(size, '.');
    text.isForRoom = isForRoom;
    texts.push_back(std::move(text));
    return texts.back();
}

void World::addOnCommandLine(const SimulatedPerson& person, bool isAdmin) {
    journal.line([&] { return person.letter + " is added on the command line"; });
    store.putMember({person.publicKey, isAdmin});
    relay.membersChanged();
}

void World::removeOnCommandLine(const SimulatedPerson& person) {
    journal.line([&] { return person.letter + " is removed on the command line"; });
    store.removeMember(person.publicKey);
    relay.membersChanged();
}
