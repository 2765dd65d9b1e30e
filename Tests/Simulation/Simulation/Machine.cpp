#include "Simulation/Machine.h"

#include <algorithm>
#include <utility>

/// A keyring with one key in it.
class Machine::Secrets : public SecretStore {
public:
    explicit Secrets(const std::string& secretKeyText) : data(secretKeyText.begin(), secretKeyText.end()) {}

    Found copyMatching(const SecretQuery&) override {
        Found found;
        found.item.data = data;
        return found;
    }
    SecretStatus add(const SecretItem&) override { return SecretStatuses::internalError; }
    SecretStatus update(const SecretQuery&, ByteView) override { return SecretStatuses::internalError; }
    SecretStatus remove(const SecretQuery&) override { return SecretStatuses::internalError; }
    std::optional<std::vector<std::string>> accessGroups() override { return std::nullopt; }
    std::string errorMessage(SecretStatus) override { return "simulated"; }

private:
    Bytes data;
};

Machine::Machine(Network& network, const SimulatedPerson& person, std::string name, std::filesystem::path folder)
    : person(person),
      name(std::move(name)),
      network(network),
      folder(std::move(folder)),
      secrets(std::make_unique<Secrets>(person.secretKeyText)),
      transport(network, *this) {}

Machine::~Machine() = default;

// ---- the process

void Machine::start() {
    network.journal.line([&] { return name + " starts"; });
    death = Death::closed;
    internets = std::make_unique<Internets>(network.loop, path.monitor());
    internets->start();
    kit = std::make_unique<Kit>(KitEnvironment{network.loop, *internets, *secrets, transport, host, folder});
    connection = kit->state().connection;
    checkHistory("after a start");
    if ((connection != Connection::setup) != expected.wishesLink())
        network.journal.fail(name + " does not remember whether it was to be connected");
    bool isFirst = true;  // the first call tells the present state, and is no change
    kit->observeState(*this, [isFirst](Machine& machine, const State& state) mutable {
        if (!std::exchange(isFirst, false)) machine.published(state);
    });
    network.loop.startTimer(0.01, [this, run = ++runs] {
        if (run == runs && kit) path.update(isPathUp);
    });
    if (!kit->state().endpoint) goTo(Network::server);
    if (wantsLink && kit->state().connection == Connection::setup) connect();
}

void Machine::quit() {
    network.journal.line([&] { return name + " ends"; });
    expected.saved(kit->state(), network.loop.now());
    kit->save();
    end();
}

void Machine::kill(Death how) {
    network.journal.line([&] { return name + (how == Death::silent ? " loses its power" : " is killed"); });
    death = how;
    end();
}

void Machine::end() {
    expected.killed(network.loop.now());
    kit.reset();
    internets.reset();
}

void Machine::setPath(bool isUp) {
    network.journal.line([&] { return name + (isUp ? " has a network" : " has no network"); });
    isPathUp = isUp;
    if (!isUp)
        for (const auto& wire : network.wires)
            if (wire->machine == name && !wire->up.isCut()) wire->lose({}, {});
    path.update(isUp);
}

void Machine::published(const State& state) {
    expected.changed(state, network.loop.now());
    if (state.connection == connection) return;
    connection = state.connection;
    network.journal.line([&] {
        switch (connection) {
            case Connection::setup: return name + " is in setup";
            case Connection::offline: return name + " is offline";
            case Connection::online: return name + " is online";
        }
        return name;
    });
    if (connection == Connection::setup && !isLeaving && !wasThrownOut)
        network.journal.fail(name + " gave up though nobody threw it out");
}

// ---- the user

void Machine::say(const SaidText& text, const std::string& target) {
    std::vector<std::string> readers;
    if (text.isForRoom && kit->socket())
        for (const MetaPerson& each : kit->socket()->serverPeople()) readers.push_back(each.publicKey);
    if (!text.isForRoom) readers.push_back(target);

    const bool isSent = kit->canSend();
    network.journal.line([&] {
        return name + " says text " + std::to_string(text.number) + " to " +
               (text.isForRoom ? "the room, " + std::to_string(readers.size()) + " people" : target.substr(0, 6)) +
               (isSent ? "" : ", in vain");
    });
    if (isSent && text.isForRoom) expected.room({person.publicKeyText, text.content});
    if (isSent && !text.isForRoom) expected.conversation(target, {person.publicKeyText, text.content});
    textBeingSaid = &text;
    kit->send(text.content, target);
    textBeingSaid = nullptr;

    std::vector<std::string> sealedFor;
    for (const Copy* copy : network.ledger.copiesOf(text)) sealedFor.push_back(copy->target->publicKeyText);
    if (isSent ? sealedFor != readers : !sealedFor.empty())
        network.journal.fail(name + " sealed text " + std::to_string(text.number) + " for others than it should");
}

void Machine::command(const std::string& line) {
    network.journal.line([&] { return name + " types /" + line; });
    kit->command(line);
}

void Machine::connect() {
    network.journal.line([&] { return name + " connects"; });
    wantsLink = true;
    wasThrownOut = false;
    kit->connect();
}

void Machine::disconnect() {
    network.journal.line([&] { return name + " disconnects"; });
    wantsLink = false;
    isLeaving = true;
    kit->disconnect();
    isLeaving = false;
}

void Machine::goTo(const std::string& server) {
    network.journal.line([&] { return name + " chooses " + server; });
    const Endpoint endpoint(server);
    const bool isNew = kit->state().endpoint != endpoint;
    if (isNew) {
        if (kit->state().endpoint) expected.saved(kit->state(), network.loop.now());
        expected.serverChanged(server);
    }
    isLeaving = true;
    kit->setEndpoint(endpoint);
    isLeaving = false;
    if (isNew) checkHistory("after a change of servers");
}

// ---- what comes

void Machine::arrived(Wire& wire, ByteView frame, const std::function<void()>& hand) {
    if (const Copy* copy = network.ledger.delivered(wire, frame)) {
        const std::string& author = copy->author->publicKeyText;
        const bool isListed = kit->state().people.contains(author);
        network.journal.line([&] {
            return name + " gets " + network.ledger.described(*copy) +
                   (isListed ? "" : ", whose author it does not know");
        });
        const auto handed = std::ranges::find(copy->handed, &wire, &Copy::Handed::wire);
        if (!isListed && handed != copy->handed.end() && handed->isAuthorMember)
            network.journal.fail(name + " drops " + network.ledger.described(*copy) + ", for no list named its author");
        if (isListed && copy->text) {
            if (copy->text->isForRoom)
                expected.room({author, copy->text->content});
            else
                expected.conversation(author, {author, copy->text->content});
        }
    }
    hand();
}

void Machine::checkHistory(const std::string& when) const {
    if (!kit) return;
    if (const auto difference = expected.difference(kit->state()))
        network.journal.fail(name + ", " + when + ": " + *difference);
}
