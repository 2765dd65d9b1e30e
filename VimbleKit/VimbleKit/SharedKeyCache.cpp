#include "VimbleKit/SharedKeyCache.h"

#include <cstring>
#include <utility>

SharedKeyCache::SharedKeyCache()
    : entries(0, [] {
          Hash hash;
          Nacl::randomBytes({reinterpret_cast<std::uint8_t*>(hash.multipliers.data()), sizeof hash.multipliers});
          return hash;
      }()) {}

SharedKeyCache::Entry SharedKeyCache::find(const PublicKey& publicKey) const {
    const auto found = entries.find(publicKey);
    return found != entries.end() ? found->second : nullptr;
}

void SharedKeyCache::keep(const PublicKey& publicKey, Entry entry) {
    if (entries.size() >= limit) entries.clear();
    entries.insert_or_assign(publicKey, std::move(entry));
}

std::size_t SharedKeyCache::Hash::operator()(const PublicKey& key) const {
    std::array<std::uint64_t, 4> words;
    std::memcpy(words.data(), key.data(), key.size());
    __uint128_t sum = 0;
    for (std::size_t i = 0; i < words.size(); ++i) sum += static_cast<__uint128_t>(words[i]) * (multipliers[i] | 1);
    return static_cast<std::size_t>(sum >> 64) ^ static_cast<std::size_t>(sum);
}
