#include "Simulation/Verdict.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

namespace {

/// Fails unless members are online, the others are thrown out, and nobody is still dialling.
void judgeLinks(World& world) {
    for (const auto& machine : world.machines) {
        if (!machine->isRunning()) continue;
        const Kit& kit = machine->session();
        const bool isMember = world.isMember(machine->person);
        if (isMember && (kit.state().connection != Connection::online || !kit.socket()->isConnected()))
            world.journal.fail(machine->name + " is not online");
        if (!isMember && kit.state().connection != Connection::setup)
            world.journal.fail(machine->name + " is no member's, and was not told so");
        if (kit.socket()->isConnecting()) world.journal.fail(machine->name + " is still connecting");
    }
}

/// Who must be online to the relay: for each member's key, whether one of the member's machines is.
std::map<std::string, bool> presence(World& world) {
    std::map<std::string, bool> online;
    for (const StoredMember& member : world.store.people) online[Nacl::hex(member.key)] = false;
    for (const auto& machine : world.machines)
        if (machine->isRunning() && world.isMember(machine->person)) online[machine->person.publicKeyText] = true;
    return online;
}

void judgeRosters(World& world) {
    const auto online = presence(world);
    for (const auto& machine : world.machines) {
        if (!machine->isRunning() || !world.isMember(machine->person)) continue;
        const State& state = machine->session().state();
        if (state.people.size() != online.size())
            return world.journal.fail(machine->name + " lists others than there are");
        for (const auto& [key, person] : state.people) {
            const auto found = online.find(key);
            if (found == online.end()) return world.journal.fail(machine->name + " lists somebody who is no member");
            if (person.isOnline != found->second)
                return world.journal.fail(machine->name + " is wrong about who is online: " + key.substr(0, 6));
            const StoredMember* member = world.store.member(*Nacl::publicKeyFromHex(key));
            if (person.isAdmin != member->isAdmin)
                return world.journal.fail(machine->name + " is wrong about an admin");
        }
    }
}

/// Fails unless the relay holds exactly the links and the mail that it must.
void judgeRelay(World& world) {
    const auto online = presence(world);
    std::size_t links = 0;
    for (const auto& machine : world.machines)
        if (machine->isRunning() && world.isMember(machine->person)) ++links;
    const RelayGauges gauges = world.relay.gauges();
    const auto expect = [&](const char* what, std::uint64_t found, std::uint64_t expected) {
        if (found != expected)
            world.journal.fail("the relay counts " + std::to_string(found) + " " + what + " instead of " +
                               std::to_string(expected));
    };
    expect("links", gauges.links, links);
    expect("members", gauges.members, world.store.people.size());
    expect("members online", gauges.membersOnline,
           static_cast<std::uint64_t>(std::ranges::count_if(online, [](const auto& each) { return each.second; })));
    expect("unproved packs", gauges.unprovedPacks, 0);
    std::uint64_t bytes = 0;
    for (const auto& [id, row] : world.store.rows) bytes += row.frame.size();
    expect("packs of mail", gauges.mailPacks, world.store.rows.size());
    expect("bytes of mail", gauges.mailBytes, bytes);
}

void judgeTexts(World& world) {
    const auto online = presence(world);
    world.ledger.checkArrivals([&](const SimulatedPerson& person) { return !online.at(person.publicKeyText); });
    for (const auto& wire : world.wires)
        if (wire->isOpen) world.ledger.checkLink(*wire, wire->person);
    for (const auto& machine : world.machines) machine->checkHistory("in the end");
}

}  // namespace

void judgeNames(World& world) {
    for (const auto& machine : world.machines) {
        const auto count =
            std::ranges::count_if(world.machines, [&](const auto& each) { return &each->person == &machine->person; });
        const Person* own = machine->session().state().me();
        // Two machines of one person that were not online together may have different names, and both be right.
        if (count > 1 || !own || !world.isMember(machine->person)) continue;
        for (const auto& other : world.machines) {
            const Person* known = other->session().state().people.find(own->publicKey);
            if (!world.isMember(other->person) || !known) continue;
            if (known->name != own->name || known->emoji != own->emoji)
                return world.journal.fail(other->name + " knows " + machine->name + " by another name");
        }
    }
}

void judge(World& world) {
    judgeLinks(world);
    judgeRosters(world);
    judgeRelay(world);
    judgeTexts(world);
}
