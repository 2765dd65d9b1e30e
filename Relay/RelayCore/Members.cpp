#include "RelayCore/Members.h"

#include "VimbleWire/ServerMessage.h"

#include <algorithm>
#include <functional>

Member* Members::find(ByteView key) {
    PublicKey wanted;
    if (key.size() != wanted.size()) return nullptr;
    std::copy(key.begin(), key.end(), wanted.begin());
    const auto found = byKey.find(wanted);
    return found == byKey.end() ? nullptr : found->second.get();
}

Member& Members::add(const StoredMember& stored) {
    auto& member = byKey[stored.key];
    member = std::make_unique<Member>();
    member->key = stored.key;
    member->isAdmin = stored.isAdmin;
    member->since = lastAdded = ++version;
    order.push_back(member.get());
    return *member;
}

void Members::remove(Member& member) {
    ++version;
    std::erase(order, &member);
    byKey.erase(PublicKey(member.key));
}

std::size_t Members::adminCount() const {
    return std::count_if(order.begin(), order.end(), [](const Member* member) { return member->isAdmin; });
}

std::size_t Members::onlineCount() const {
    return std::count_if(order.begin(), order.end(), [](const Member* member) { return member->isOnline(); });
}

const Bytes& Members::listMessage() {
    encodeList();
    return encoded;
}

std::size_t Members::listHash() {
    encodeList();
    return encodedHash;
}

void Members::encodeList() {
    if (encodedVersion == version) return;
    std::vector<MetaPerson> people;
    people.reserve(order.size());
    for (const Member* member : order) people.push_back({Nacl::hex(member->key), member->isAdmin, member->isOnline()});
    encoded = ServerMessage::encodedList(people);
    encodedHash = std::hash<std::string_view>{}(textOf(encoded));
    encodedVersion = version;
}
