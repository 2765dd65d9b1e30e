#pragma once

#include "RelayCore/RelayStore.h"
#include "Simulation/SimulatedPerson.h"

#include <map>
#include <optional>
#include <set>
#include <vector>

/// The relay's database, in memory: what an operation has changed when it returns outlives the relay.
///
/// It is also the simulation's record of who is a member when, since nobody becomes or stops being one
/// in any other way.
class SimulatedStore : public RelayStore {
public:
    struct Row {
        PublicKey target{};
        Date arrived;
        Bytes frame;
    };

    /// While set, every operation fails.
    bool fails = false;

    std::vector<StoredMember> members() override;
    void putMember(const StoredMember& member) override;
    bool removeMember(const PublicKey& key) override;
    void changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) override;
    std::vector<StoredPack> mail(const PublicKey& target, std::int64_t after, std::size_t maxPacks,
                                 std::size_t maxBytes) override;
    MailUsage usage(const PublicKey& target) override;
    std::uint64_t expireMail(Date limit) override;
    std::int64_t lastMailId() override;

    // What the simulation looks at; these never fail.
    const std::vector<StoredMember>& allMembers() const { return list; }
    const StoredMember* member(const PublicKey& key) const;
    /// Names a stretch of membership, each with a number of its own; nothing while not a member.
    std::optional<int> membership(const PublicKey& key) const;
    const std::map<std::int64_t, Row>& rows() const { return mailbox; }

private:
    void operate() const;

    std::vector<StoredMember> list;  // as they were admitted
    std::map<PublicKey, int> memberships;
    int lastMembership = 0;
    std::map<std::int64_t, Row> mailbox;
    std::int64_t lastId = 0;
};
