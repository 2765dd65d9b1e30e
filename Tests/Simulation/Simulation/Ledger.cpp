#include "Simulation/Ledger.h"

#include "Simulation/Wire.h"
#include "VimbleWire/Pack.h"

#include <algorithm>
#include <cstring>
#include <map>

std::size_t Ledger::NonceHash::operator()(const Nonce& nonce) const {
    std::size_t hash;
    std::memcpy(&hash, nonce.data(), sizeof hash);
    return hash;
}

Copy* Ledger::find(ByteView frame) {
    const auto pack = PackView::of(frame);
    if (!pack) return nullptr;
    const auto found = copies.find(pack->nonce);
    return found == copies.end() ? nullptr : &found->second;
}

const SimulatedPerson* Ledger::person(ByteView key) const {
    const auto found = std::ranges::find_if(
        people, [&](const SimulatedPerson& each) { return std::ranges::equal(each.publicKey, key); });
    return found == people.end() ? nullptr : &*found;
}

std::string Ledger::described(const Copy& copy) const {
    std::string text = "pack " + std::to_string(copy.number) + " (";
    text += copy.text ? "text " + std::to_string(copy.text->number) : "a name";
    text += " from " + copy.author->letter + " for " + copy.target->letter + ")";
    return text;
}

const std::vector<Copy*>& Ledger::copiesOf(const SaidText& text) const {
    static const std::vector<Copy*> none;
    const auto found = byText.find(&text);
    return found == byText.end() ? none : found->second;
}

// ---- the steps

void Ledger::sent(const SimulatedPerson& author, ByteView frame, const SaidText* text) {
    const auto pack = PackView::of(frame);
    const SimulatedPerson* target = pack ? person(pack->target) : nullptr;
    if (!target) return;  // for the relay itself
    const auto [place, isNew] = copies.try_emplace(pack->nonce);
    if (!isNew) return journal.fail("a nonce was used twice");
    Copy& copy = place->second;
    copy.number = inOrder.size();
    copy.text = text;
    copy.author = &author;
    copy.target = target;
    inOrder.push_back(&copy);
    if (!std::ranges::equal(pack->author, author.publicKey)) journal.fail(described(copy) + " has another author");
    if (text) byText[text].push_back(&copy);
}

void Ledger::read(const Wire& wire, ByteView frame, int incarnation) {
    Copy* copy = find(frame);
    if (!copy) return;
    copy->read = Copy::Read{loop.now(), incarnation, ++places, store.membership(copy->target->publicKey), &wire};
    journal.line([&] { return "relay reads " + described(*copy); });
}

void Ledger::handed(const Wire& wire, ByteView frame) {
    Copy* copy = find(frame);
    if (!copy) return;
    const auto what = [&] { return described(*copy) + " on link " + std::to_string(wire.number); };
    journal.line([&] { return "relay hands on " + what(); });
    if (!copy->read) return journal.fail(what() + " was handed on and never read");
    if (&wire.person != copy->target) return journal.fail(what() + " was handed to somebody else");
    if (copy->read->wire == &wire) return journal.fail(what() + " was sent back on its own link");
    const auto membership = store.membership(copy->target->publicKey);
    if (!membership || membership != copy->read->membership)
        return journal.fail(what() + " was handed to somebody who was no member all the while");

    const bool wasHanded = !copy->handed.empty();
    const bool isOnSameLink = std::ranges::any_of(copy->handed, [&](const auto& each) { return each.wire == &wire; });
    if (isOnSameLink) return journal.fail(what() + " was handed on twice on one link");
    // A pack may be handed on again live, to a second machine. As mail, it may come again only while it is not proved.
    const bool isLive = wire.authenticatedAt && *wire.authenticatedAt < copy->read->place;
    if (wasHanded && !isLive && !mayComeAgain(*copy)) return journal.fail(what() + " came again though it was proved");
    copy->handed.push_back({&wire, store.membership(copy->author->publicKey).has_value()});

    // Packs of one author stay in order, also those that come again.
    std::uint64_t& last = wire.lastPlaces[copy->author];
    if (copy->read->place < last) return journal.fail(what() + " overtook another of the same author");
    last = copy->read->place;
}

const Copy* Ledger::delivered(Wire& wire, ByteView frame) {
    Copy* copy = find(frame);
    if (!copy) return nullptr;
    const bool wasHanded = std::ranges::any_of(copy->handed, [&](const auto& each) { return each.wire == &wire; });
    if (!wasHanded) journal.fail(described(*copy) + " came out of a link that it did not go into");
    copy->delivered.push_back({&wire});
    wire.heard.push_back(copy);
    return copy;
}

void Ledger::proved(Wire& wire, std::size_t heard, int incarnation) {
    for (; wire.provedCount < heard; ++wire.provedCount) {
        Copy& copy = *wire.heard[wire.provedCount];
        // A relay that was killed may have forgotten the proof, and then needs a new one.
        if (!copy.proof || mayComeAgain(copy)) copy.proof = Copy::Proof{loop.now(), incarnation};
    }
}

void Ledger::relayKilled(int incarnation) { killed[incarnation] = loop.now(); }

bool Ledger::mayBeForgotten(const Copy& copy) const {
    const auto found = killed.find(copy.read->incarnation);
    return found != killed.end() && found->second - copy.read->at <= excusedLoss;
}

bool Ledger::mayComeAgain(const Copy& copy) const {
    if (!copy.proof) return true;
    const auto found = killed.find(copy.proof->incarnation);
    return found != killed.end() && found->second - copy.proof->at <= excusedLoss;
}

// ---- when all has come to rest

void Ledger::checkArrivals(const std::function<bool(const SimulatedPerson&)>& isAway) {
    std::map<const Copy*, int> waiting;
    for (const auto& [id, row] : store.rows) {
        const Copy* copy = find(row.frame);
        if (!copy || !copy->read) return journal.fail("the store holds a pack that nobody sent");
        if (++waiting[copy] > 1) return journal.fail(described(*copy) + " is in the store twice");
        if (row.target != copy->target->publicKey) return journal.fail(described(*copy) + " waits for somebody else");
        if (!isAway(*copy->target)) return journal.fail(described(*copy) + " waits for somebody who is there");
        if (!mayComeAgain(*copy)) return journal.fail(described(*copy) + " still waits though it was proved");
    }
    for (const Copy* copy : inOrder) {
        if (!copy->read || copy->target == copy->author) continue;
        const auto membership = store.membership(copy->target->publicKey);
        const bool isOwed = membership && membership == copy->read->membership;
        if (!isOwed || copy->proof || waiting.contains(copy) || mayBeForgotten(*copy)) continue;
        return journal.fail(described(*copy) + " is missing: read, and neither proved nor kept");
    }
}

void Ledger::checkLink(const Wire& wire, const SimulatedPerson& owner) {
    for (const Copy* copy : inOrder) {
        if (copy->target != &owner || !copy->read || !wire.authenticatedAt) continue;
        if (copy->read->place <= *wire.authenticatedAt || copy->read->wire == &wire) continue;
        if (copy->read->incarnation != wire.incarnation) continue;
        const bool wasDelivered =
            std::ranges::any_of(copy->delivered, [&](const auto& each) { return each.wire == &wire; });
        if (!wasDelivered) return journal.fail(described(*copy) + " never came on link " + std::to_string(wire.number));
    }
}

void Ledger::count(std::size_t& sent, std::size_t& lost, std::size_t& repeated, std::size_t& excused) const {
    sent = inOrder.size();
    lost = repeated = excused = 0;
    for (const Copy* copy : inOrder) {
        std::map<std::string, int> arrivals;
        for (const auto& each : copy->delivered) ++arrivals[each.wire->machine];
        if (!copy->read) ++lost;
        if (std::ranges::any_of(arrivals, [](const auto& each) { return each.second > 1; })) ++repeated;
        if (copy->read && copy->delivered.empty() && mayBeForgotten(*copy)) ++excused;
    }
}
