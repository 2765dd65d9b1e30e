#pragma once

#include "Base/Bytes.h"
#include "StateKit/Date.h"
#include "TweetNacl/Nacl.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

/// The database failed (disk full, file gone, locked for too long): the text is one line for people.
class [[nodiscard]] StoreError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A member as it is kept.
struct StoredMember {
    PublicKey key{};
    bool isAdmin = false;

    bool operator==(const StoredMember&) const = default;
};

/// A pack to be kept. `frame` is borrowed for the call.
struct MailItem {
    std::int64_t id = 0;  // grows with every pack, so that the order of ids is the order of arrival
    PublicKey target{};
    Date arrived;
    ByteView frame;
};

/// A pack that was kept.
struct StoredPack {
    std::int64_t id = 0;
    Date arrived;
    Bytes frame;
};

/// What waits for one member.
struct MailUsage {
    std::uint64_t packs = 0;
    std::uint64_t bytes = 0;

    bool operator==(const MailUsage&) const = default;
};

/// What must last: the members and their mail.
///
/// Every operation is one transaction: it happens wholly or, when it throws, not at all. Each may throw
/// `StoreError`, after which it may be called again at any later time.
class RelayStore {
public:
    RelayStore() = default;
    RelayStore(const RelayStore&) = delete;
    RelayStore& operator=(const RelayStore&) = delete;
    virtual ~RelayStore() = default;

    /// All members, in the order in which they were admitted.
    [[nodiscard]] virtual std::vector<StoredMember> members() = 0;
    /// Admits a member, or sets whether one is an admin.
    virtual void putMember(const StoredMember& member) = 0;
    /// Removes a member and the mail that waits for them. @return false if there was none
    virtual bool removeMember(const PublicKey& key) = 0;

    /// Adds the packs `kept` and deletes those with the ids `forgotten`, in one transaction. A pack whose target is
    /// no member any more is left out without an error, and so is an id that no kept pack has.
    virtual void changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) = 0;
    /// The mail of one member with ids above `after`, in order: at most `maxPacks`, and no more after the
    /// one that reaches `maxBytes`.
    [[nodiscard]] virtual std::vector<StoredPack> mail(const PublicKey& target, std::int64_t after,
                                                       std::size_t maxPacks, std::size_t maxBytes) = 0;
    /// What waits for one member.
    [[nodiscard]] virtual MailUsage usage(const PublicKey& target) = 0;
    /// Deletes what arrived before `limit`. @return how many packs
    virtual std::uint64_t expireMail(Date limit) = 0;
    /// No kept pack has a higher id.
    virtual std::int64_t lastMailId() = 0;
};
