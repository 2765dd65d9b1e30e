#include "VimbleKit/Incoming.h"

#include <string_view>
#include <unordered_set>
#include <utility>

namespace {

constexpr std::string_view roomKind = "room";

}  // namespace

void Incoming::receivedPeople(const std::vector<MetaPerson>& list) {
    // Keep the people of before: an observer may change the state meanwhile. The copy is cheap, since it
    // shares its entries.
    const auto old = core.state().people;
    const std::string own = core.state().publicKey;
    const Date when = loop.now();
    const Weak<Incoming> self(this);
    const auto tell = [&](const Event& event) {
        if (self) events.send(event);
    };
    core.commit([&](State& state) { applyPeople(state, list); });
    if (!self) return;
    const auto now = core.state().people;

    for (const auto& [key, person] : old)
        if (!now.contains(key)) tell(Events::Remove{person, person, when});
    for (const auto& [key, person] : now) {
        const Person* before = old.find(key);
        if (!before) {
            tell(Events::Add{person, person, when});
        } else if (key != own && person.isOnline != before->isOnline) {
            if (person.isOnline)
                tell(Events::Join{person, when});
            else
                tell(Events::Leave{person, when});
        }
    }
    if (self && events.hasSubscribers()) events.send(Events::Roster{core.state().roster()});
}

void Incoming::applyPeople(State& state, const std::vector<MetaPerson>& list) {
    std::unordered_set<std::string_view> listed;
    for (const MetaPerson& entry : list) listed.insert(entry.publicKey);
    std::vector<std::string> gone;
    for (const auto& [key, person] : state.people)
        if (!listed.contains(key)) gone.push_back(key);
    for (const std::string& key : gone) state.people.erase(key);

    for (const MetaPerson& entry : list) {
        const Person* known = state.people.find(entry.publicKey);
        // Skip an entry that changes nothing, as most do: what is not touched stays shared with other copies.
        if (known && known->isAdmin == entry.isAdmin && known->isOnline == entry.isOnline) continue;
        Person person = known ? *known : Person{entry.publicKey, "", "", false, false};
        person.isAdmin = entry.isAdmin;
        person.isOnline = entry.isOnline;
        state.people.set(entry.publicKey, std::move(person));
    }
}

void Incoming::receivedPack(const Pack& pack) {
    const auto record = PackPlaintext::decoded(pack.plaintext);
    if (!record) return;
    const std::string key = Nacl::hex(pack.authorKey);
    const Date when = loop.now();
    const auto people = core.state().people;
    const Person* old = people.find(key);
    const Weak<Incoming> self(this);
    applyPack(key, *record, when);
    if (!self || !events.hasSubscribers()) return;

    const auto peopleNow = core.state().people;
    const Person* now = peopleNow.find(key);
    if (!now) return;
    if (old) {
        if (now->name != old->name) events.send(Events::NameSet{*now, old->displayName(), when});
        if (self && now->emoji != old->emoji) events.send(Events::EmojiSet{*now, old->displayEmoji(), when});
    }
    if (self && record->text) events.send(Events::Message{*now, *record->text, when});
}

void Incoming::applyPack(const std::string& key, const PackPlaintext& record, Date when) {
    const Person* person = core.state().people.find(key);
    if (!person) return;
    const bool isNameNew = person->name != record.name;
    const bool isEmojiNew = person->emoji != record.emoji;
    const Weak<Incoming> self(this);
    if (isNameNew)
        core.commit([&](State& state) {
            state.people.updateExisting(key, [&](Person& changed) { changed.name = record.name; });
        });
    if (!self) return;
    if (isEmojiNew)
        core.commit([&](State& state) {
            state.people.updateExisting(key, [&](Person& changed) { changed.emoji = record.emoji; });
        });
    if (!self || !record.text) return;
    const bool isForRoom = record.kind == roomKind;
    core.commit([&](State& state) {
        Message message{key, *record.text, when};
        if (isForRoom)
            state.room.messages.push_back(std::move(message));
        else
            state.conversations.update(key, [&](Chat& chat) { chat.messages.push_back(std::move(message)); });
    });
}
