#pragma once

#include "TweetNacl/Nacl.h"

#include <cstdint>

/// A key pair that is the same in every run, so that a saved input always means the same.
inline Nacl::KeyPair fuzzKeyPair(std::uint8_t number) {
    const std::uint8_t seed[] = {'k', 'e', 'y', number};
    Nacl::KeyPair pair;
    pair.secretKey = SecretKey(ByteView(Nacl::hash(seed)).first(SecretKey::size));
    pair.publicKey = Nacl::publicKey(pair.secretKey);
    return pair;
}

/// A nonce that no other call of this process has given.
inline Nonce fuzzNonce() {
    static std::uint64_t count = 0;
    ++count;
    Nonce nonce{};
    for (std::size_t i = 0; i < sizeof count; ++i) nonce[i] = static_cast<std::uint8_t>(count >> (8 * i));
    return nonce;
}
