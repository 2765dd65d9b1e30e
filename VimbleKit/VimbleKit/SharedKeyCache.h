#pragma once

#include "TweetNacl/Nacl.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

/// What the user's secret key has in common with each of the public keys that it meets.
///
/// Computing it is 98 % of the cost of sealing or opening a short message, so it is done once a key.
/// Holds at most 16,384 keys (some 2 MB) and then starts over, so that nobody fills the memory with
/// made-up ones. Main thread only.
class SharedKeyCache {
public:
    using Entry = std::shared_ptr<const Nacl::SharedKey>;
    static constexpr std::size_t limit = 16384;

    SharedKeyCache();

    /// What was kept for the key; null if nothing was.
    Entry find(const PublicKey& publicKey) const;

    /// Keeps what was computed for the key. Whether it is worth keeping is the caller's to judge: what
    /// a stranger's frame named without proof is not.
    void keep(const PublicKey& publicKey, Entry entry);

private:
    /// Keys come from strangers, who could choose them so that they all meet in one bucket of a plain
    /// hash; each cache therefore draws its own multipliers.
    struct Hash {
        std::array<std::uint64_t, 4> multipliers;
        std::size_t operator()(const PublicKey& key) const;
    };

    std::unordered_map<PublicKey, Entry, Hash> entries;
};
