#include "SocketWorld.h"

#include "Base/Check.h"
#include "StateKit/Log.h"
#include "Text/Text.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <algorithm>
#include <array>
#include <set>

namespace {

constexpr std::size_t personCount = 7;
constexpr std::size_t serverCount = 2;

/// Everybody's keys, and the keys that they share with the user. Made once a process, since that takes long.
struct Everybody {
    std::array<Nacl::KeyPair, personCount> people;
    std::array<std::string, personCount> texts;
    std::array<Nacl::KeyPair, serverCount> servers;
    std::array<std::optional<Nacl::SharedKey>, personCount> withPerson;
    std::array<std::optional<Nacl::SharedKey>, serverCount> withServer;

    Everybody() {
        std::uint8_t number = 100;
        for (auto& pair : people) pair = fuzzKeyPair(number++);
        for (auto& pair : servers) pair = fuzzKeyPair(number++);
        for (std::size_t i = 0; i < personCount; ++i) {
            texts[i] = Nacl::hex(people[i].publicKey);
            withPerson[i].emplace(people[i].publicKey, people[0].secretKey);
        }
        for (std::size_t i = 0; i < serverCount; ++i) withServer[i].emplace(servers[i].publicKey, people[0].secretKey);
        struct Silence : LogSink {
            void write(LogLevel, std::string_view, std::string_view, std::string_view) override {}
        };
        Log::setSink(std::make_shared<Silence>());
        // Print nothing. The lines are still built, so that the fuzzer tests that too.
        DebugLines::setPrint([](std::string_view) {});
    }

    static const Everybody& all() {
        static const Everybody everybody;
        return everybody;
    }
    const PublicKey& user() const { return people[0].publicKey; }
};

const char* const servers[] = {"https://one.example", "http://localhost:8080", "https://two.example:8443/a/b?c"};

/// Applies a server's list to the people. A plain form of the rule, to compare the client's result with.
void applyList(State& state, const std::vector<MetaPerson>& list) {
    SharedMap<std::string, Person> people;
    for (const MetaPerson& entry : list) {
        const Person* known = people.find(entry.publicKey);
        if (!known) known = state.people.find(entry.publicKey);
        Person person = known ? *known : Person{entry.publicKey, "", "", false, false};
        person.isAdmin = entry.isAdmin;
        person.isOnline = entry.isOnline;
        people.set(entry.publicKey, person);
    }
    state.people = people;
}

void applyRecord(State& state, const std::string& key, const PackPlaintext& record, Date when) {
    const Person* known = state.people.find(key);
    if (!known) return;
    Person person = *known;
    person.name = record.name;
    person.emoji = record.emoji;
    state.people.set(key, person);
    if (!record.text) return;
    Chat chat;
    if (record.kind == "room")
        chat = state.room;
    else if (const Chat* old = state.conversations.find(key))
        chat = *old;
    chat.messages.push_back({key, *record.text, when});
    if (record.kind == "room")
        state.room = chat;
    else
        state.conversations.set(key, chat);
}

}  // namespace

// ---- the machine

/// A secret store that holds the user's key.
class SocketWorld::Secrets : public SecretStore {
public:
    Found copyMatching(const SecretQuery&) override {
        const std::string text = Nacl::hex(Everybody::all().people[0].secretKey.view());
        Found found;
        found.item.data = Bytes(text.begin(), text.end());
        return found;
    }
    SecretStatus add(const SecretItem&) override { return SecretStatuses::ok; }
    SecretStatus update(const SecretQuery&, ByteView) override { return SecretStatuses::ok; }
    SecretStatus remove(const SecretQuery&) override { return SecretStatuses::ok; }
    std::optional<std::vector<std::string>> accessGroups() override { return std::nullopt; }
    std::string errorMessage(SecretStatus) override { return "none"; }
};

/// Observes everything, and lets the user act inside its actions.
class SocketWorld::Observer : public SignalTarget {
public:
    explicit Observer(SocketWorld& world) : world(world) {}

    void observe(Kit& kit) {
        kit.observeEvents<Observer>(*this, [](Observer& self, const Event& event) {
            if (std::holds_alternative<Events::Message>(event)) ++self.messages;
            if (std::holds_alternative<Events::Roster>(event)) ++self.rosters;
            self.world.react();
        });
        kit.observeOnline<Observer>(*this, [](Observer& self, const Online&) { self.world.react(); });
        kit.observeNetworkIO<Observer>(*this, [](Observer& self, const NetworkIO& line) {
            check(Text::isUtf8(line.description), "a line of traffic is no UTF-8");
            self.world.react();
        });
        kit.observeState<Observer>(*this, [](Observer& self, const State&) { self.world.react(); });
    }

    std::uint64_t messages = 0;
    std::uint64_t rosters = 0;

private:
    SocketWorld& world;
};

SocketWorld::SocketWorld()
    : internets((Everybody::all(), loop), path_.monitor()), secrets(std::make_unique<Secrets>()), transport(loop) {
    internets.start();
    path_.update(true);
    observer = std::make_unique<Observer>(*this);
    transport.onStart = [this](FakeLink& link) { link.sends = sendMode; };
    startSession();
    chooseServer(0);
    connect();
}

SocketWorld::~SocketWorld() {
    next = nullptr;
    // Run the work that is still posted, which must cope with the session being gone.
    kit.reset();
    loop.run();
}

void SocketWorld::startSession() {
    if (kit) return;
    wishesNoLink = false;
    kit = std::make_unique<Kit>(KitEnvironment{loop, internets, *secrets, transport, host, folder.path});
    observer->observe(*kit);
}

const std::string& SocketWorld::keyText(std::size_t person) { return Everybody::all().texts[person % personCount]; }

void SocketWorld::react() {
    if (!next) return;
    ++disturbances;
    const auto action = std::exchange(next, nullptr);
    action();
}

// ---- the network, the server, and people

FakeLink* SocketWorld::openLink() {
    if (transport.links.empty()) return nullptr;
    FakeLink& last = transport.last();
    return last.isOpen() && &last != endedLink ? &last : nullptr;
}

/// @return whether the session received the frame
bool SocketWorld::deliver(ByteView frame) {
    FakeLink* link = openLink();
    if (!link || link->state() != TransportState::ready) return false;
    disturbancesBefore = disturbances;
    return link->deliver(frame);
}

void SocketWorld::rawFrame(ByteView frame) {
    const auto key = Greeting::decoded(frame);
    // Leave greetings to `greet`, which notes whose key was sent.
    if (!key) deliver(frame);
    settle();
}

void SocketWorld::greet(std::size_t server) {
    if (openLink() && greetedLink != openLink() &&
        deliver(Greeting::encoded(Everybody::all().servers[server].publicKey))) {
        greetedLink = &transport.last();
        greetedBy = server;
    }
    settle();
}

void SocketWorld::serverSays(ByteView plaintext) {
    const auto message = ServerMessage::decoded(plaintext);
    if (message && message->kind == ServerMessage::commandResponse && !Text::isUtf8(textOf(message->body))) return;
    FakeLink* link = openLink();
    if (!link || link != greetedLink || !kit) return settle();

    State expected = kit->state();
    const auto list =
        message && message->kind == ServerMessage::list ? ServerMessage::decodedList(message->body) : std::nullopt;
    if (list) applyList(expected, *list);
    // A user who has disconnected is not brought online by a message that crosses the close frame.
    const bool isFirst = kit->socket() && !kit->socket()->isConnected();
    if (isFirst && expected.connection != Connection::setup) expected.connection = Connection::online;
    const auto rosters = observer->rosters;

    const Everybody& all = Everybody::all();
    lastFrame =
        sealedFrame(all.servers[greetedBy].publicKey, all.user(), fuzzNonce(), plaintext, *all.withServer[greetedBy]);
    const bool wasUndisturbed = !next;
    if (deliver(lastFrame) && wasUndisturbed && isUndisturbed()) {
        check(kit->socket()->isConnected(), "a pack from the server proves nothing");
        check(kit->state() == expected, "the server's word makes another state");
        check(observer->rosters == rosters + (list ? 1 : 0), "a list is told of otherwise than once");
        if (list) check(kit->socket()->serverPeople() == *list, "the list is not kept as it was sent");
    }
    settle();
}

void SocketWorld::personSays(std::size_t person, ByteView plaintext) {
    const Everybody& all = Everybody::all();
    FakeLink* link = openLink();
    if (!link || link != greetedLink || !kit) return settle();
    State expected = kit->state();
    const auto record = PackPlaintext::decoded(plaintext);
    const bool isListed = expected.people.contains(keyText(person));
    if (record) applyRecord(expected, keyText(person), *record, loop.now());
    const auto messages = observer->messages;
    const Nonce nonce = fuzzNonce();
    lastFrame = sealedFrame(all.people[person].publicKey, all.user(), nonce, plaintext, *all.withPerson[person]);
    const bool wasUndisturbed = !next;
    if (deliver(lastFrame) && wasUndisturbed && isUndisturbed()) {
        check(kit->state() == expected, "a person's word makes another state");
        check(observer->messages == messages + (record && record->text && isListed ? 1 : 0),
              "a text is told of otherwise than once");
    }
    settle();
}

void SocketWorld::altered(std::size_t place, std::uint8_t bits) {
    if (lastFrame.empty() || !kit) return;
    Bytes frame = lastFrame;
    place %= frame.size();
    // The seal does not cover the target's key, and the highest bit of the author's key is ignored.
    if (place >= EncryptedPack::targetOffset - 1 && place < EncryptedPack::nonceOffset) return;
    if (bits == 0 || openLink() != greetedLink) return;
    frame[place] ^= bits;
    const State before = kit->state();
    const bool wasUndisturbed = !next;
    if (deliver(frame) && wasUndisturbed && isUndisturbed()) check(kit->state() == before, "an altered pack was taken");
    settle();
}

void SocketWorld::link(Turn turn) {
    if (FakeLink* link = openLink()) {
        const bool isReady = link->state() == TransportState::ready;
        switch (turn) {
            case Turn::ready:
                if (!isReady) link->ready();
                break;
            case Turn::wait:
                if (!isReady) link->wait();
                break;
            case Turn::fail: link->fail(); break;
            case Turn::end:
                if (!isReady) break;
                endedLink = link;
                link->end();
                break;
        }
    }
    settle();
}

void SocketWorld::close(std::optional<std::uint16_t> code) {
    if (FakeLink* link = openLink(); link && link->state() == TransportState::ready) {
        endedLink = link;
        link->close(code ? std::optional(static_cast<CloseCode>(*code)) : std::nullopt);
    }
    settle();
}

void SocketWorld::sends(FakeLink::Sends mode) {
    sendMode = mode;
    if (FakeLink* link = openLink()) link->sends = mode;
}

void SocketWorld::completeSends() {
    if (FakeLink* link = openLink()) link->completeSends();
    settle();
}

void SocketWorld::advance(Seconds interval) {
    loop.advance(interval);
    settle();
}

void SocketWorld::path(bool isSatisfied) {
    path_.update(isSatisfied);
    settle();
}

// ---- the user

/// Does an operation that may be refused. @return whether it was accepted
template <class Operation>
bool SocketWorld::tried(Operation&& operation) {
    try {
        operation();
        return true;
    } catch (const SocketError&) {
    } catch (const NaclError&) {
    }
    return false;
}

void SocketWorld::connect() {
    startSession();
    wishesNoLink = false;
    kit->connect();
}

void SocketWorld::disconnect() {
    if (!kit) return;
    wishesNoLink = true;
    kit->disconnect();
}

void SocketWorld::chooseServer(std::size_t server) {
    if (!kit) return;
    // The saved state of that server includes whether the user wishes to be connected.
    wishesNoLink = false;
    kit->setEndpoint(Endpoint(servers[server]));
}

void SocketWorld::setName(const std::string& name) {
    if (kit) tried([&] { kit->setName(name); });
}

void SocketWorld::setEmoji(const std::string& emoji) {
    if (kit) tried([&] { kit->setEmoji(emoji); });
}

void SocketWorld::command(const std::string& text) {
    if (kit) tried([&] { kit->command(text); });
}

void SocketWorld::send(const std::string& text, const std::string& target) {
    if (!kit) return;
    disturbancesBefore = disturbances;
    const bool wasUndisturbed = !next;
    State expected = kit->state();
    const bool canSend = kit->canSend();
    const bool isSent = tried([&] { kit->send(text, target); });
    if (!wasUndisturbed || !isUndisturbed()) return;
    if (canSend && isSent) {
        const Message message{expected.publicKey, text, loop.now()};
        if (target == Kit::roomKey)
            expected.room.messages.push_back(message);
        else
            expected.conversations.update(target, [&](Chat& chat) { chat.messages.push_back(message); });
    }
    check(kit->state() == expected, "sending makes another state");
}

void SocketWorld::markRead(std::size_t person) {
    if (kit) kit->markRead(keyText(person));
}

void SocketWorld::markRoomRead() {
    if (kit) kit->markRoomRead();
}

void SocketWorld::save() {
    if (kit) kit->save();
}

void SocketWorld::endSession() { kit.reset(); }

// ---- what must hold

void SocketWorld::settle() {
    loop.run();
    for (const auto& link : transport.links) checkSent(*link);
    // Forget links that are over for good, since looking at each of them again takes time.
    std::erase_if(transport.links,
                  [&](const auto& link) { return link->isDestroyed && link != transport.links.back(); });
    if (!kit) return;

    const State& state = kit->state();
    check(state.publicKey == keyText(0), "the user has become somebody else");
    check(state.endpoint.has_value() == (kit->socket() != nullptr),
          "there is a server without a socket, or a socket without one");
    for (const auto& [key, person] : state.people)
        check(person.publicKey == key, "somebody stands under another's key");
    const auto checkChat = [](const Chat& chat) {
        check(chat.readCount >= 0 && chat.readCount <= static_cast<std::int64_t>(chat.messages.size()),
              "more was read than there is");
        if (!chat.messages.empty()) {
            const Message& last = chat.messages[chat.messages.size() - 1];
            const auto& texts = Everybody::all().texts;
            check(std::find(texts.begin(), texts.end(), last.author) != texts.end(), "a text comes from nobody");
            check(Text::isUtf8(last.text), "a text is no UTF-8");
        }
    };
    checkChat(state.room);
    for (const auto& [key, chat] : state.conversations) checkChat(chat);
    if (state.connection == Connection::online)
        check(kit->socket() && kit->socket()->isConnected(), "the user is online without a link");
    if (kit->canSend()) check(state.me() != nullptr, "the user may send before they are listed");
    if (wishesNoLink) check(state.connection == Connection::setup, "the user is connected against their wish");
    check(state.roster().size() == state.people.size(), "the roster leaves somebody out");
}

/// Fails unless each frame that was sent is a pack by the user that its reader can open and read.
void SocketWorld::checkSent(FakeLink& link) {
    const Everybody& all = Everybody::all();
    for (const Bytes& frame : link.takeSent()) {
        const auto pack = PackView::of(frame);
        check(pack && pack->authorKey() == all.user(), "what was sent is no pack of the user's");
        const PublicKey target = pack->targetKey();
        try {
            for (std::size_t i = 0; i < serverCount; ++i)
                if (target == all.servers[i].publicKey)
                    check(Text::isUtf8(textOf(all.withServer[i]->open(pack->ciphertext, pack->nonce))),
                          "a command is no UTF-8");
            for (std::size_t i = 0; i < personCount; ++i)
                if (target == all.people[i].publicKey)
                    check(PackPlaintext::decoded(all.withPerson[i]->open(pack->ciphertext, pack->nonce)).has_value(),
                          "what was sent to somebody is no record");
        } catch (const NaclError&) {
            fatal("what was sent can't be opened by its reader");
        }
    }
}

void SocketWorld::end() {
    next = nullptr;
    loop.run();
    if (!kit) return;
    settle();
    kit->save();
    State expected = kit->state();
    expected.publicKey.clear();
    if (expected.connection == Connection::online) expected.connection = Connection::offline;
    std::vector<Person> people;
    for (const auto& [key, person] : expected.people) people.push_back(person);
    for (Person& person : people) {
        person.isOnline = false;
        expected.people.set(person.publicKey, person);
    }
    check(State::load(folder.path, {}) == expected, "the state comes back altered from the disk");
}
