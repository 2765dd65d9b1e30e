#include "Simulation/Storm.h"

#include <algorithm>
#include <utility>

Storm::Storm(World& world) : world(world) {
    Random& random = world.random;
    length = random.between(60, 240);
    meanGap = random.spread(0.2, 2);
    textSize = random.chance(0.15) ? 20000 : 40;
    world.network.refusals = random.chance(0.5) ? random.between(0, 0.5) : 0;
    world.network.slowestSend = random.chance(0.3) ? 0.2 : 0;

    // Every storm has its own mixture, without some of the faults: frequent faults can hide what a rare one does.
    const auto add = [&](const char* name, void (Storm::*run)(), double share, double low, double high) {
        if (random.chance(share)) actions.push_back({name, random.spread(low, high), run});
    };
    add("say", &Storm::say, 1, 5, 20);
    add("burst", &Storm::burst, 0.5, 0.2, 1);
    add("rename", &Storm::rename, 0.8, 0.3, 2);
    add("command", &Storm::command, 0.7, 0.3, 3);
    add("disconnect", &Storm::disconnect, 0.4, 0.1, 1);
    add("connect", &Storm::connect, 1, 0.5, 3);
    add("chooseServer", &Storm::chooseServer, 0.3, 0.1, 0.5);
    add("changeMembers", &Storm::changeMembers, 0.5, 0.1, 1);
    add("admit", &Storm::admit, 0.6, 0.3, 2);
    add("restartClient", &Storm::restartClient, 0.6, 0.2, 2);
    add("stall", &Storm::stall, 0.6, 0.3, 3);
    add("slowDown", &Storm::slowDown, 0.4, 0.2, 2);
    add("cut", &Storm::cut, 0.6, 0.3, 3);
    add("halfOpen", &Storm::halfOpen, 0.6, 0.3, 3);
    add("losePath", &Storm::losePath, 0.5, 0.2, 2);
    add("stopRelay", &Storm::stopRelay, 0.4, 0.1, 0.5);
    add("killRelay", &Storm::killRelay, 0.4, 0.1, 1);
    add("failStore", &Storm::failStore, 0.2, 0.1, 0.5);
    for (const Action& action : actions) {
        totalWeight += action.weight;
        world.journal.line([&] { return std::string(action.name) + ": weight " + std::to_string(action.weight); });
    }
}

void Storm::rage() {
    startRelay();
    for (const auto& machine : world.machines)
        after(world.random.between(0, 10), [&machine = *machine] {
            if (!machine.isRunning()) machine.start();
        });
    const Date end = world.now() + length;
    while (world.now() < end && !world.journal.failure()) {
        world.loop.advance(world.random.gap(meanGap));
        double at = world.random.unit() * totalWeight;
        const auto chosen =
            std::ranges::find_if(actions, [&](const Action& action) { return (at -= action.weight) < 0; });
        (this->*(chosen == actions.end() ? actions.front() : *chosen).run)();
    }
}

void Storm::calm() {
    world.journal.line([] { return "the storm is over"; });
    isCalm = true;
    world.network.refusals = 0;
    world.store.repair();
    if (!world.relay.isRunning()) world.relay.start();
    for (const auto& wire : world.wires) {
        wire->up.heal();
        wire->down.heal();
    }
    for (const auto& machine : world.machines) {
        if (!machine->isPathUp) machine->setPath(true);
        const bool sleeps = machine->person.index != 0 && world.random.chance(0.1);
        if (sleeps) {
            if (machine->isRunning()) machine->quit();
            sleepers.push_back(machine.get());
            continue;
        }
        if (!machine->isRunning()) machine->start();
        machine->goTo(Network::server);
        machine->connect();
    }
}

void Storm::connectAgain() {
    for (const auto& machine : world.machines)
        if (machine->isThrownOut()) machine->connect();
}

void Storm::wakeAll() {
    for (Machine* machine : std::exchange(sleepers, {})) {
        machine->start();
        machine->goTo(Network::server);
        machine->connect();
    }
}

void Storm::lastRound() {
    for (const auto& machine : world.machines) {
        if (!machine->session().canSend()) continue;
        machine->say(world.newText(machine->name, true, 0), Kit::roomKey);
        for (const SimulatedPerson& person : world.people)
            machine->say(world.newText(machine->name, false, 0), person.publicKeyText);
    }
}

// ---- choosing

Machine& Storm::any() { return *world.machines[world.random.below(world.machines.size())]; }

Machine* Storm::running() {
    std::vector<Machine*> found;
    for (const auto& machine : world.machines)
        if (machine->isRunning()) found.push_back(machine.get());
    return found.empty() ? nullptr : found[world.random.below(found.size())];
}

Wire* Storm::openWire() {
    std::vector<Wire*> found;
    for (const auto& wire : world.wires)
        if ((wire->isOpen || wire->client) && !wire->up.isCut()) found.push_back(wire.get());
    return found.empty() ? nullptr : found[world.random.below(found.size())];
}

/// Does the work after the delay, unless the storm is over by then.
void Storm::after(Seconds delay, std::function<void()> work) {
    world.loop.startTimer(delay, [this, work = std::move(work)] {
        if (!isCalm) work();
    });
}

// ---- what people do

void Storm::speak(Machine& machine, std::size_t size) {
    const bool isForRoom = world.random.chance(0.6);
    const SimulatedPerson& reader = world.people[world.random.below(world.people.size())];
    machine.say(world.newText(machine.name, isForRoom, world.random.below(size)),
                isForRoom ? Kit::roomKey : reader.publicKeyText);
}

void Storm::say() {
    if (Machine* machine = running()) speak(*machine, textSize);
}

void Storm::burst() {
    Machine* machine = running();
    const std::size_t count = 2 + world.random.below(15);
    for (std::size_t i = 0; machine && i < count; ++i) speak(*machine, textSize);
}

void Storm::rename() {
    Machine* machine = running();
    if (!machine) return;
    const std::string word = std::to_string(world.random.below(1000));
    machine->command(world.random.chance(0.7) ? "name " + machine->name + word : "emoji " + word);
}

void Storm::command() {
    // Mostly use the first machine, whose person is always an admin. Others may be no admins, and are refused then.
    Machine* machine = world.random.chance(0.7) ? world.machines.front().get() : running();
    if (!machine || !machine->isRunning()) return;
    const SimulatedPerson& person = world.people[world.random.below(world.people.size())];
    const bool isFirst = person.index == 0;
    switch (world.random.below(8)) {
        case 0: return machine->command("who");
        case 1: return machine->command("help");
        case 2: return isFirst ? void() : machine->command("remove " + person.publicKeyText);
        case 3: return machine->command("admin " + person.publicKeyText);
        case 4: return isFirst ? void() : machine->command("unadmin " + person.publicKeyText);
        case 5: return machine->command("add nonsense");
        case 6:
        case 7: return machine->command("add " + person.publicKeyText);
    }
}

void Storm::changeMembers() {
    if (world.store.isToFail()) return;
    const SimulatedPerson& person = world.people[world.random.below(world.people.size())];
    if (person.index == 0) return;
    if (!world.isMember(person))
        world.addOnCommandLine(person, world.random.chance(0.2));
    else if (world.random.chance(0.5))
        world.removeOnCommandLine(person);
}

/// Admits a person who connects and speaks at once, perhaps before the others have the list that names them.
void Storm::admit() {
    const auto found = std::ranges::find_if(world.machines, [&](const auto& machine) {
        return machine->isThrownOut() && machine->isPathUp && !world.isMember(machine->person);
    });
    if (found == world.machines.end() || world.store.isToFail()) return;
    Machine& machine = **found;
    world.addOnCommandLine(machine.person, false);
    machine.connect();
    for (int i = 1; i <= 8; ++i)
        after(i * 0.001, [this, &machine] {
            if (machine.isRunning() && machine.session().canSend()) speak(machine, 1);
        });
}

void Storm::disconnect() {
    Machine* machine = running();
    if (!machine) return;
    machine->disconnect();
    if (world.random.chance(0.3)) machine->connect();
}

void Storm::connect() {
    // Those whom the relay has thrown out try too: they may have been admitted since.
    for (const auto& machine : world.machines)
        if (machine->isRunning() && machine->session().state().connection == Connection::setup &&
            machine->session().state().endpoint == Endpoint(Network::server) && world.random.chance(0.5))
            machine->connect();
}

void Storm::chooseServer() {
    Machine* machine = running();
    if (!machine) return;
    const bool isAway = machine->session().state().endpoint != Endpoint(Network::server);
    machine->goTo(isAway || world.random.chance(0.2) ? Network::server : Network::otherServer);
    if (world.random.chance(0.8)) machine->connect();
}

// ---- what goes wrong

void Storm::restartClient() {
    Machine& machine = any();
    if (!machine.isRunning()) return machine.start();
    ++world.kills;
    if (world.random.chance(0.3))
        machine.quit();
    else
        machine.kill(world.random.chance(0.3) ? Machine::Death::silent : Machine::Death::closed);
    after(world.random.spread(0.01, 60), [&machine] {
        if (!machine.isRunning()) machine.start();
    });
}

void Storm::stall() {
    Wire* wire = openWire();
    if (!wire) return;
    const Date until = world.now() + world.random.spread(0.1, 60);
    const std::size_t which = world.random.below(3);
    world.journal.line([&] { return "link " + std::to_string(wire->number) + " stalls"; });
    if (which != 0) wire->up.stall(until);
    if (which != 1) wire->down.stall(until);
}

void Storm::slowDown() {
    Wire* wire = openWire();
    if (!wire) return;
    world.journal.line([&] { return "link " + std::to_string(wire->number) + " is slow"; });
    (world.random.chance(0.7) ? wire->down : wire->up).slowDown(world.random.spread(200, 20000));
}

void Storm::cut() {
    Wire* wire = openWire();
    if (!wire) return;
    world.journal.line([&] { return "link " + std::to_string(wire->number) + " breaks"; });
    wire->lose(wire->latency, wire->latency);
}

void Storm::halfOpen() {
    Wire* wire = openWire();
    if (!wire) return;
    world.journal.line([&] { return "link " + std::to_string(wire->number) + " goes dead"; });
    const auto learns = [&] {
        return world.random.chance(0.4) ? std::optional(world.random.spread(0.01, 100)) : std::nullopt;
    };
    const auto client = learns();
    wire->lose(client, learns());
}

void Storm::losePath() {
    Machine& machine = any();
    if (!machine.isPathUp) return;
    machine.setPath(false);
    after(world.random.spread(0.001, 60), [&machine] {
        if (!machine.isPathUp) machine.setPath(true);
    });
}

void Storm::startRelay() {
    if (!world.relay.isRunning() && !world.store.isToFail()) world.relay.start();
}

void Storm::stopRelay() {
    if (!world.relay.isRunning() || world.store.isToFail() || world.relay.isAiling()) return;
    world.relay.shutDown();
    after(world.random.spread(0.01, 40), [this] { startRelay(); });
}

void Storm::killRelay() {
    // A relay that can't write may lose what it holds: there is no promise to check.
    if (!world.relay.isRunning() || world.store.isToFail() || world.relay.isAiling()) return;
    ++world.kills;
    world.relay.kill(world.random.chance(0.3));
    after(world.random.spread(0.01, 40), [this] { startRelay(); });
}

void Storm::failStore() {
    if (world.store.isToFail() || !world.relay.isRunning()) return;
    world.journal.line([] { return "the store fails"; });
    world.store.failAfter(0);
    after(world.random.spread(0.05, 20), [this] {
        world.journal.line([] { return "the store works again"; });
        world.store.repair();
    });
}
