#pragma once

#include "TweetNacl/Nacl.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

/// Keeps the shared keys of the user's secret key and the public keys of others.
///
/// Computing a shared key is 98 % of the cost of sealing or opening a short message, so it is done once
/// for each public key. Holds at most 16,384 keys (some 2 MB) and then starts over, so that nobody can
/// fill the memory with made-up keys. Main thread only.
class SharedKeyCache {
public:
    using Entry = std::shared_ptr<const Nacl::SharedKey>;
    static constexpr std::size_t limit = 16384;

    SharedKeyCache();

    /// The shared key that was kept for the public key; null if none was.
    Entry find(const PublicKey& publicKey) const;

    /// Keeps the shared key that was computed for the public key. The caller must not keep one for a public
    /// key that a stranger's frame has named without proof.
    void keep(const PublicKey& publicKey, Entry entry);

private:
    /// Keys come from strangers, who could choose them so that a plain hash puts them all into one bucket.
    /// Each cache therefore draws random multipliers of its own.
    struct Hash {
        std::array<std::uint64_t, 4> multipliers;
        std::size_t operator()(const PublicKey& key) const;
    };

    std::unordered_map<PublicKey, Entry, Hash> entries;
};
