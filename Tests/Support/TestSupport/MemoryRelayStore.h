#pragma once

#include "Base/Check.h"
#include "RelayCore/RelayStore.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

/// The relay's database in memory, which outlives the relay as a file does. It can be made to fail.
///
/// An operation that fails changes nothing, as in a real transaction.
class MemoryRelayStore : public RelayStore {
public:
    struct Row {
        PublicKey target{};
        Date arrived;
        Bytes frame;
    };

    static constexpr std::size_t forever = std::numeric_limits<std::size_t>::max();

    /// Lets `working` more operations succeed, and the `failing` after them fail.
    void failAfter(std::size_t working, std::size_t failing = forever) {
        failFrom = operations + working;
        failUntil = failing == forever ? forever : failFrom + failing;
    }
    void repair() { failFrom = failUntil = forever; }
    /// Whether the next operation is going to fail, or any at all.
    bool isFailing() const { return isToFail() && operations >= failFrom; }
    bool isToFail() const { return failFrom != forever && operations < failUntil; }

    std::vector<StoredMember> members() override {
        operate();
        return people;
    }
    void putMember(const StoredMember& member) override {
        operate();
        const auto found = std::ranges::find(people, member.key, &StoredMember::key);
        if (found == people.end())
            people.push_back(member);
        else
            *found = member;
    }
    bool removeMember(const PublicKey& key) override {
        operate();
        std::erase_if(rows, [&](const auto& row) { return row.second.target == key; });
        return std::erase_if(people, [&](const StoredMember& member) { return member.key == key; }) > 0;
    }
    void changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) override {
        operate();
        ++mailChanges;
        for (const MailItem& item : kept) {
            check(!rows.contains(item.id), "Mail was given an id twice.");
            if (!member(item.target)) continue;
            rows[item.id] = {item.target, item.arrived, Bytes(item.frame.begin(), item.frame.end())};
            highestId = std::max(highestId, item.id);
        }
        for (const std::int64_t id : forgotten) rows.erase(id);
    }
    std::vector<StoredPack> mail(const PublicKey& target, std::int64_t after, std::size_t maxPacks,
                                 std::size_t maxBytes) override {
        operate();
        std::vector<StoredPack> page;
        std::size_t bytes = 0;
        for (auto row = rows.upper_bound(after); row != rows.end() && page.size() < maxPacks && bytes < maxBytes;
             ++row) {
            if (row->second.target != target) continue;
            page.push_back({row->first, row->second.arrived, row->second.frame});
            bytes += row->second.frame.size();
        }
        return page;
    }
    MailUsage usage(const PublicKey& target) override {
        operate();
        MailUsage usage;
        for (const auto& [id, row] : rows) {
            if (row.target != target) continue;
            ++usage.packs;
            usage.bytes += row.frame.size();
        }
        return usage;
    }
    std::uint64_t expireMail(Date limit) override {
        operate();
        return std::erase_if(rows, [&](const auto& row) { return row.second.arrived < limit; });
    }
    std::int64_t lastMailId() override {
        operate();
        return highestId;
    }

    /// Looks without an operation. @return null for nobody who is a member
    const StoredMember* member(const PublicKey& key) const {
        const auto found = std::ranges::find(people, key, &StoredMember::key);
        return found == people.end() ? nullptr : &*found;
    }

    std::vector<StoredMember> people;  // as they were admitted
    std::map<std::int64_t, Row> rows;  // the mail, by id
    std::size_t operations = 0;        // failed ones too
    std::size_t mailChanges = 0;

private:
    void operate() {
        const std::size_t number = operations++;
        if (number >= failFrom && number < failUntil) throw StoreError("the disk is full");
    }

    std::size_t failFrom = forever;
    std::size_t failUntil = forever;
    std::int64_t highestId = 0;
};
