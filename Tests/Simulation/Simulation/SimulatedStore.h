#pragma once

#include "TestSupport/MemoryRelayStore.h"

#include <map>
#include <optional>

/// The relay's database, and the simulation's record of who is a member when, since nobody becomes or
/// stops being one in any other way.
class SimulatedStore : public MemoryRelayStore {
public:
    void putMember(const StoredMember& stored) override;
    bool removeMember(const PublicKey& key) override;

    /// Names a stretch of membership, each with a number of its own; nothing while not a member.
    std::optional<int> membership(const PublicKey& key) const;

private:
    std::map<PublicKey, int> memberships;
    int lastMembership = 0;
};
