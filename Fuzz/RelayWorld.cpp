#include "RelayWorld.h"

#include "Base/Check.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <cstring>

// ---- keys

const RelayKeys& RelayKeys::all() {
    static const RelayKeys keys;
    return keys;
}

RelayKeys::RelayKeys() {
    std::uint8_t number = 0;
    for (auto& pair : personKeys) pair = fuzzKeyPair(number++);
    for (auto& pair : linkKeys) pair = fuzzKeyPair(number++);
    for (std::size_t link = 0; link < links; ++link)
        for (std::size_t person = 0; person < people; ++person)
            sharedKeys[link][person].emplace(personKeys[person].publicKey, linkKeys[link].secretKey);
}

std::optional<std::size_t> RelayKeys::personOf(ByteView key) const {
    for (std::size_t i = 0; i < people; ++i)
        if (std::ranges::equal(key, personKeys[i].publicKey)) return i;
    return std::nullopt;
}

// ---- links

/// One link, with all that the relay has sent on it.
class RelayWorld::Link : public RelayLink {
public:
    Link(RelayWorld& world, std::size_t number, std::size_t address, std::size_t keyIndex)
        : number(number),
          address(address),
          keyIndex(keyIndex),
          openedAt(world.now),
          openedIn(world.events),
          world(world) {}

    void send(ByteView frame) override {
        check(isOpen, "something was sent to a link that is closed");
        if (!isGreeted) {
            const auto key = Greeting::decoded(frame);
            check(key == RelayKeys::all().link(keyIndex).publicKey, "a link is greeted with another key");
            isGreeted = true;
            return;
        }
        check(person.has_value(), "something was sent to a link before it said who it is");
        const auto pack = PackView::of(frame);
        check(pack.has_value(), "what was sent is no pack");
        check(std::ranges::equal(pack->target, RelayKeys::all().person(*person)), "a pack was sent to somebody else");
        if (std::ranges::equal(pack->author, RelayKeys::all().link(keyIndex).publicKey))
            say(*pack);
        else
            deliver(*pack, frame);
    }

    void ping(std::uint64_t payload) override {
        check(isOpen, "a closed link was pinged");
        check(!pendingPing, "a second ping before the first was answered");
        pendingPing = payload;
        pingedAt = world.now;
        beforePing = unproved.size();
    }

    void close(CloseCode code, std::string_view reason) override {
        check(isOpen, "a link was closed twice");
        check(!reason.empty() && reason.size() <= 123, "a link is closed without a reason, or with a long one");
        isOpen = false;
        closeCode = code;
    }

    const std::size_t number;
    const std::size_t address;
    const std::size_t keyIndex;
    const Date openedAt;
    const std::uint64_t openedIn;  // the number of events before it was opened
    bool isOpen = true;
    bool isGreeted = false;
    std::optional<CloseCode> closeCode;
    std::optional<std::size_t> person;  // who has sent a first pack on it
    bool isAuthenticated = false;       // the relay has answered with the list
    std::optional<std::uint64_t> pendingPing;
    Date pingedAt;
    std::size_t beforePing = 0;         // how many of `unproved` the pending ping proves
    std::vector<std::size_t> unproved;  // packs, in the order in which they came
    std::set<std::size_t> received;
    std::vector<MetaPerson> list;
    bool wasRefused = false;

private:
    void say(const PackView& pack) {
        Bytes plaintext;
        try {
            plaintext = RelayKeys::all().shared(keyIndex, *person).open(pack.ciphertext, pack.nonce);
        } catch (const NaclError&) {
            fatal("what the relay says can't be opened");
        }
        const auto message = ServerMessage::decoded(plaintext);
        check(message.has_value(), "what the relay says is no message");
        if (message->kind == ServerMessage::list) {
            const auto people = ServerMessage::decodedList(message->body);
            check(people.has_value(), "the list can't be read");
            list = *people;
            isAuthenticated = true;
            return;
        }
        check(isAuthenticated, "the list is not the first that the relay says");
        const bool isError = message->kind == ServerMessage::commandError;
        check(isError || message->kind == ServerMessage::commandResponse, "the relay says what nobody knows");
        const auto record = PackPlaintext::decoded(message->body);
        check(record && record->text && !record->text->empty(), "an answer has no text");
        if (isError) wasRefused = true;
    }

    void deliver(const PackView& pack, ByteView frame) {
        check(isAuthenticated, "a pack came before the list");
        std::uint64_t index = 0;
        std::memcpy(&index, pack.nonce.data(), sizeof index);
        check(index < world.sent.size(), "a pack that nobody sent");
        const auto& original = world.sent[index];
        check(std::ranges::equal(frame, original.frame), "a pack came altered");
        check(original.target == *person, "a pack came to the wrong person");
        check(original.fromLink != number, "a pack came back to the link that sent it");
        check(original.fate != Fate::mustNot, "a pack came that was refused, or belongs to somebody removed");
        check(!original.isProved || original.provedAt >= openedIn,
              "a pack came again to a link that was opened after its proof");
        check(received.insert(index).second, "a pack came twice to one link");
        const std::string author = Nacl::hex(RelayKeys::all().person(original.author));
        const bool isListed =
            std::any_of(list.begin(), list.end(), [&](const MetaPerson& each) { return each.publicKey == author; });
        check(isListed || !world.store.member(RelayKeys::all().person(original.author)),
              "a pack came from somebody who is not yet listed");
        unproved.push_back(index);
    }

    RelayWorld& world;
};

// ---- the world

namespace {

/// Limits small enough for the fuzzer to reach each of them. A page of mail still fits in a link's queue.
RelayLimits fuzzLimits() {
    RelayLimits limits;
    limits.packBytes = 100'000;
    limits.queuedBytes = 500'000;
    limits.textsPerSecond = 2;
    limits.burst = 1;
    limits.linksPerAddress = 4;
    limits.links = 10;
    limits.mailPacks = 20;
    limits.mailBytes = 200'000;
    return limits;
}

constexpr Seconds checkInterval = 1;  // how often the relay looks at the clock

}  // namespace

RelayWorld::RelayWorld() {
    for (std::size_t i = 0; i < 4; ++i) store.people.push_back({RelayKeys::all().person(i), i == 0});
    start();
}

RelayWorld::~RelayWorld() { core.reset(); }

void RelayWorld::start() {
    core = std::make_unique<RelayCore>(fuzzLimits(), store, static_cast<RelayHost&>(*this));
    before = {};
    wake.reset();
    core->start(now);
    isUp = true;
}

Nacl::KeyPair RelayWorld::linkKeys() {
    const Nacl::KeyPair& pair = RelayKeys::all().link(nextKey);
    return {pair.publicKey, pair.secretKey.duplicate()};
}

RelayWorld::Link* RelayWorld::openLink(std::size_t index) {
    return index < links.size() && links[index]->isOpen ? links[index].get() : nullptr;
}

Bytes RelayWorld::sealed(std::size_t link, std::size_t person, ByteView plaintext) {
    const std::size_t key = links[link]->keyIndex;
    return sealedFrame(RelayKeys::all().person(person), RelayKeys::all().link(key).publicKey, fuzzNonce(), plaintext,
                       RelayKeys::all().shared(key, person));
}

void RelayWorld::open(std::size_t address) {
    ++nextKey;
    auto& link = *links.emplace_back(std::make_unique<Link>(*this, links.size(), address, nextKey));
    core->linkOpened(link, "address " + std::to_string(address), now);
    check(link.isGreeted == link.isOpen, "a link is neither greeted nor closed");
    afterEvent();
}

void RelayWorld::frame(Link& link, ByteView bytes) {
    // Count refusals too: on a link that sends too much, a pack is refused without an answer.
    const auto refusals = [&] {
        const RelayCounters& counters = core->counters();
        return counters.refusedGarbage + counters.refusedAuthor + counters.refusedTarget + counters.refusedTooLarge +
               counters.refusedFullMailbox;
    };
    const auto refusalsBefore = refusals();
    link.wasRefused = false;
    // A copy of exactly this size, which dies after the call: the sanitizer notices if the relay keeps a part of it.
    const Bytes copy(bytes.begin(), bytes.end());
    const auto peopleBefore = storedPeople();
    core->frameReceived(link, copy, now);
    if (refusals() != refusalsBefore) link.wasRefused = true;
    noticeRemovals(peopleBefore);
    afterEvent();
}

void RelayWorld::authenticate(std::size_t index, std::size_t person) {
    Link* link = openLink(index);
    if (!link || link->person) return;
    const bool isMember = store.member(RelayKeys::all().person(person)) != nullptr;
    link->person = person;
    frame(*link, sealed(index, person, bytesOf("list")));
    if (link->isAuthenticated) return;
    check(!link->isOpen, "a first pack is neither answered nor refused");
    check(!isMember || didStoreFail || link->closeCode != CloseCode::policyViolation, "a member was thrown out");
}

void RelayWorld::sendPack(std::size_t index, std::size_t target, std::size_t bodySize) {
    Link* link = openLink(index);
    if (!link || !link->isAuthenticated) return;
    Nonce nonce{};
    const std::uint64_t number = sent.size();
    std::memcpy(nonce.data(), &number, sizeof number);
    const EncryptedPack pack(RelayKeys::all().person(*link->person), RelayKeys::all().person(target), nonce,
                             Bytes(bodySize + 1, 7));
    const bool isToSelf = target == *link->person;
    const bool isMember = store.member(RelayKeys::all().person(target)) != nullptr;
    sent.push_back({pack.bytes(), *link->person, target, index, Fate::may, false, 0});
    frame(*link, sent.back().frame);
    if (didStoreFail || isToSelf) return;
    if (link->wasRefused)
        sent[number].fate = Fate::mustNot;
    else if (isMember && !sent[number].isProved)
        sent[number].fate = Fate::must;
}

void RelayWorld::sendAs(std::size_t index, std::size_t author, std::size_t target) {
    Link* link = openLink(index);
    if (!link || !link->isAuthenticated || author == *link->person) return;
    Nonce nonce{};
    const std::uint64_t number = sent.size();
    std::memcpy(nonce.data(), &number, sizeof number);
    const EncryptedPack pack(RelayKeys::all().person(author), RelayKeys::all().person(target), nonce, Bytes(20, 7));
    sent.push_back({pack.bytes(), author, target, index, Fate::mustNot, false, 0});
    frame(*link, sent.back().frame);
    check(link->wasRefused || !link->isOpen, "a pack in another's name was taken");
}

void RelayWorld::command(std::size_t index, std::string_view text) {
    Link* link = openLink(index);
    if (!link || !link->isAuthenticated) return;
    const auto admins = [&] {
        return std::count_if(store.people.begin(), store.people.end(),
                             [](const StoredMember& each) { return each.isAdmin; });
    };
    const bool hadAdmins = admins() > 0;
    const bool isAdmin = std::any_of(store.people.begin(), store.people.end(), [&](const StoredMember& each) {
        return each.isAdmin && each.key == RelayKeys::all().person(*link->person);
    });
    const auto peopleBefore = store.people;
    frame(*link, sealed(index, *link->person, bytesOf(text)));
    check(!hadAdmins || admins() > 0, "a command removed the last admin");
    check(isAdmin || store.people == peopleBefore, "somebody who is no admin changed the members");
}

void RelayWorld::raw(std::size_t index, ByteView bytes) {
    Link* link = openLink(index);
    // Bytes with a known author's key are a pack, which only `sendPack` and `sendAs` may send: they keep account of it.
    const auto pack = PackView::of(bytes);
    if (!link || (pack && RelayKeys::all().personOf(pack->author))) return;
    const bool wasAuthenticated = link->isAuthenticated;
    frame(*link, bytes);
    check(wasAuthenticated || !link->isOpen, "a link lives on after a first pack that was none");
}

void RelayWorld::pong(std::size_t index) {
    Link* link = openLink(index);
    if (!link || !link->pendingPing) return;
    const std::uint64_t payload = *link->pendingPing;
    link->pendingPing.reset();
    for (std::size_t i = 0; i < link->beforePing; ++i) {
        Sent& pack = sent[link->unproved[i]];
        if (!pack.isProved) pack.provedAt = events;
        pack.isProved = true;
    }
    link->unproved.erase(link->unproved.begin(),
                         link->unproved.begin() + static_cast<std::ptrdiff_t>(link->beforePing));
    core->pongReceived(*link, payload, now);
    afterEvent();
}

void RelayWorld::wrongPong(std::size_t index, std::uint64_t payload) {
    Link* link = openLink(index);
    if (!link || link->pendingPing == payload) return;
    core->pongReceived(*link, payload, now);
    afterEvent();
}

void RelayWorld::drop(std::size_t index) {
    Link* link = openLink(index);
    if (!link) return;
    link->isOpen = false;
    core->linkClosed(*link, now);
    afterEvent();
}

void RelayWorld::changeMember(std::size_t person, int change) {
    const PublicKey& key = RelayKeys::all().person(person);
    if (store.isToFail()) return;  // the command line would have failed
    if (change == 0) {
        store.removeMember(key);
        // Until it is told, the relay may still hand on packs for this person from its memory.
        forgetPacksFor(person, Fate::may);
    } else {
        store.putMember({key, change == 1});
    }
    core->membersChanged(now);
    if (change == 0 && !core->storeFailure()) forgetPacksFor(person, Fate::mustNot);
    afterEvent();
}

std::set<std::size_t> RelayWorld::storedPeople() const {
    std::set<std::size_t> all;
    for (const StoredMember& member : store.people)
        if (const auto person = RelayKeys::all().personOf(member.key)) all.insert(*person);
    return all;
}

void RelayWorld::noticeRemovals(const std::set<std::size_t>& peopleBefore) {
    const auto peopleNow = storedPeople();
    for (const std::size_t person : peopleBefore)
        if (!peopleNow.contains(person)) forgetPacksFor(person, core->storeFailure() ? Fate::may : Fate::mustNot);
}

void RelayWorld::forgetPacksFor(std::size_t person, Fate fate) {
    for (Sent& pack : sent)
        if (pack.target == person && pack.fate != Fate::mustNot) pack.fate = fate;
}

void RelayWorld::failStoreAt(std::size_t operation) {
    if (!store.isFailing()) store.failAfter(operation - 1);
}

void RelayWorld::repairStore() { store.repair(); }

void RelayWorld::advance(Seconds interval) {
    const Date end = now + interval;
    // Mail that is too old is deleted, so it need not arrive any more.
    if (interval > 86400)
        for (Sent& pack : sent)
            if (pack.fate == Fate::must) pack.fate = Fate::may;
    int withoutProgress = 0;
    while (wake && *wake <= end) {
        withoutProgress = *wake > now ? 0 : withoutProgress + 1;
        check(withoutProgress < 20, "the relay wakes up again and again at one time");
        now = std::max(now, *wake);
        wake.reset();
        core->wake(now);
        core->turnEnded(now);
        afterEvent();
    }
    now = end;
    checkTimes();
}

void RelayWorld::checkTimes() {
    if (core->storeFailure()) return;
    for (const auto& link : links) {
        if (!link->isOpen) continue;
        if (!link->isAuthenticated)
            check(now - link->openedAt <= core->limits().firstPack + 2 * checkInterval,
                  "a link stays without a first pack");
        else if (link->pendingPing)
            check(now - link->pingedAt <= core->limits().silence + 2 * checkInterval, "a silent link stays");
    }
}

void RelayWorld::endTurn() {
    core->turnEnded(now);
    for (const auto& link : links)
        check(!link->isOpen || link->unproved.empty() || link->pendingPing, "what was sent waits without a ping");
    afterEvent();
}

void RelayWorld::restart() {
    while (!core->shutDown(now)) repairStore();
    for (const auto& link : links) check(!link->isOpen, "a link outlives the relay");
    repairStore();
    start();
    afterEvent();
}

void RelayWorld::afterEvent() {
    ++events;
    const RelayCounters& counters = core->counters();
    didStoreFail = counters.storeFailures != before.storeFailures;
    check(counters.packsProved <= counters.packsDelivered, "more packs were proved than delivered");
    check(counters.linksAuthenticated <= counters.linksOpened, "more links have a name than were opened");
    before = counters;

    const RelayGauges gauges = core->gauges();
    std::size_t open = 0, unproved = 0;
    std::set<std::size_t> online;
    std::map<std::size_t, std::size_t> perAddress;
    for (const auto& link : links) {
        if (!link->isOpen) continue;
        ++open;
        ++perAddress[link->address];
        unproved += link->unproved.size();
        if (link->isAuthenticated) online.insert(*link->person);
    }
    check(gauges.links == open, "the relay counts other links");
    check(gauges.membersOnline == online.size(), "the relay counts other people");
    check(gauges.unprovedPacks >= unproved, "the relay has forgotten what it sent");
    check(open <= core->limits().links, "too many links are open");
    for (const auto& [address, count] : perAddress)
        check(count <= core->limits().linksPerAddress, "too many links of one address are open");
    if (core->storeFailure()) check(open == 0, "a link is open while the store fails");
}

void RelayWorld::end() {
    repairStore();
    advance(5);
    check(!core->storeFailure(), "a store that works again is not taken up");
    core->membersChanged(now);
    for (std::size_t i = 0; i < links.size(); ++i) drop(i);
    endTurn();
    advance(1);
    check(core->gauges().unprovedPacks == 0, "packs are held without a link");
    check(core->gauges().members == store.people.size(), "the relay knows other members than the store");
    MailUsage kept;
    for (const auto& [id, row] : store.rows) {
        ++kept.packs;
        kept.bytes += row.frame.size();
    }
    check(core->gauges().mailPacks == kept.packs && core->gauges().mailBytes == kept.bytes,
          "the relay counts other mail than the store");

    for (const StoredMember& member : std::vector(store.people)) {
        const auto person = RelayKeys::all().personOf(member.key);
        if (!person) continue;
        const std::size_t index = links.size();
        open(100 + index);
        authenticate(index, *person);
        check(links[index]->isAuthenticated, "a member is not let in");
        endTurn();
        for (int turns = 0; links[index]->pendingPing; ++turns) {
            check(turns < 1000, "the mail has no end");
            pong(index);
            endTurn();
        }
        check(links[index]->isOpen, "the mail closes its link");
        for (std::size_t i = 0; i < sent.size(); ++i)
            check(sent[i].target != *person || sent[i].fate != Fate::must || sent[i].isProved,
                  "a pack that was taken is lost");
        std::set<std::string> listed, wanted;
        for (const MetaPerson& each : links[index]->list)
            listed.insert(each.publicKey + (each.isAdmin ? " admin" : ""));
        for (const StoredMember& each : store.people)
            wanted.insert(Nacl::hex(each.key) + (each.isAdmin ? " admin" : ""));
        check(listed == wanted, "the list tells of other people than the store");
        drop(index);
    }
    advance(1);
    check(store.rows.empty() && core->gauges().mailPacks == 0 && core->gauges().mailBytes == 0,
          "mail is left when all was read");
    check(core->shutDown(now), "the relay does not stop");
    check(store.rows.empty(), "stopping makes mail of nothing");
}
