#pragma once

#include "RelayCore/RelayStore.h"

#include "StateKit/Date.h"
#include "TweetNacl/Nacl.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <vector>

struct LinkState;
struct Parcel;

/// Somebody who may use the relay, and how they stand with it now.
struct Member {
    PublicKey key{};
    bool isAdmin = false;
    std::uint64_t since = 0;                             // the first version of the list that names this member
    std::vector<LinkState*> links;                       // authenticated; the newest last
    MailUsage mail;                                      // packs that wait and that no link holds
    std::unordered_map<std::int64_t, Parcel*> heldKept;  // packs in the store that a link holds and none has proved
    double tokens = 0;                                   // packs that may be sent now
    Date tokensAt;

    bool isOnline() const { return !links.empty(); }
};

/// All members, and the list that tells of them.
///
/// Every change that shows in the list makes a new version of it. A member's address stays the same
/// for as long as they are a member.
class Members {
public:
    Member* find(ByteView key);
    /// @param stored  its key must not be a member's already
    Member& add(const StoredMember& stored);
    void remove(Member& member);
    /// To be called when something that the list shows of a member has changed.
    void changed() { ++version; }

    const std::vector<Member*>& all() const { return order; }
    std::size_t count() const { return order.size(); }
    std::size_t adminCount() const;
    std::size_t onlineCount() const;

    std::uint64_t listVersion() const { return version; }
    /// The version in which somebody was last added.
    std::uint64_t namesVersion() const { return lastAdded; }
    /// The list as a server message, and a hash of it; made anew once a version.
    const Bytes& listMessage();
    std::size_t listHash();

private:
    struct KeyHash {
        // Part of the key will do as its hash: keys are as good as random, and only an admin can add one.
        std::size_t operator()(const PublicKey& key) const {
            std::size_t hash;
            std::memcpy(&hash, key.data(), sizeof hash);
            return hash;
        }
    };
    void encodeList();

    std::unordered_map<PublicKey, std::unique_ptr<Member>, KeyHash> byKey;
    std::vector<Member*> order;  // as they were admitted
    std::uint64_t version = 1;
    std::uint64_t lastAdded = 1;
    std::uint64_t encodedVersion = 0;
    Bytes encoded;
    std::size_t encodedHash = 0;
};
