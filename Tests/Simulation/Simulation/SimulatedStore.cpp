#include "Simulation/SimulatedStore.h"

#include <algorithm>

void SimulatedStore::operate() const {
    if (fails) throw StoreError("the simulated disk is full");
}

std::vector<StoredMember> SimulatedStore::members() {
    operate();
    return list;
}

void SimulatedStore::putMember(const StoredMember& member) {
    operate();
    const auto found = std::ranges::find(list, member.key, &StoredMember::key);
    if (found != list.end()) {
        *found = member;
        return;
    }
    list.push_back(member);
    memberships[member.key] = ++lastMembership;
}

bool SimulatedStore::removeMember(const PublicKey& key) {
    operate();
    std::erase_if(mailbox, [&](const auto& row) { return row.second.target == key; });
    memberships.erase(key);
    return std::erase_if(list, [&](const StoredMember& member) { return member.key == key; }) > 0;
}

void SimulatedStore::changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) {
    operate();
    for (const MailItem& item : kept) {
        lastId = std::max(lastId, item.id);
        if (memberships.contains(item.target))
            mailbox[item.id] = {item.target, item.arrived, Bytes(item.frame.begin(), item.frame.end())};
    }
    for (const std::int64_t id : forgotten) mailbox.erase(id);
}

std::vector<StoredPack> SimulatedStore::mail(const PublicKey& target, std::int64_t after, std::size_t maxPacks,
                                             std::size_t maxBytes) {
    operate();
    std::vector<StoredPack> packs;
    std::size_t bytes = 0;
    for (auto row = mailbox.upper_bound(after); row != mailbox.end() && packs.size() < maxPacks && bytes < maxBytes;
         ++row) {
        if (row->second.target != target) continue;
        packs.push_back({row->first, row->second.arrived, row->second.frame});
        bytes += row->second.frame.size();
    }
    return packs;
}

MailUsage SimulatedStore::usage(const PublicKey& target) {
    operate();
    MailUsage usage;
    for (const auto& [id, row] : mailbox) {
        if (row.target != target) continue;
        ++usage.packs;
        usage.bytes += row.frame.size();
    }
    return usage;
}

std::uint64_t SimulatedStore::expireMail(Date limit) {
    operate();
    return std::erase_if(mailbox, [&](const auto& row) { return row.second.arrived < limit; });
}

std::int64_t SimulatedStore::lastMailId() {
    operate();
    return lastId;
}

const StoredMember* SimulatedStore::member(const PublicKey& key) const {
    const auto found = std::ranges::find(list, key, &StoredMember::key);
    return found == list.end() ? nullptr : &*found;
}

std::optional<int> SimulatedStore::membership(const PublicKey& key) const {
    const auto found = memberships.find(key);
    return found == memberships.end() ? std::nullopt : std::optional(found->second);
}
