#include "Simulation/SimulatedStore.h"

void SimulatedStore::putMember(const StoredMember& stored) {
    MemoryRelayStore::putMember(stored);
    if (!memberships.contains(stored.key)) memberships[stored.key] = ++lastMembership;
}

bool SimulatedStore::removeMember(const PublicKey& key) {
    const bool wasMember = MemoryRelayStore::removeMember(key);
    memberships.erase(key);
    return wasMember;
}

std::optional<int> SimulatedStore::membership(const PublicKey& key) const {
    const auto found = memberships.find(key);
    return found == memberships.end() ? std::nullopt : std::optional(found->second);
}
