#include "TestSupport/FakeServer.h"
#include "VimbleKit/SharedKeyCache.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

SharedKeyCache::Entry sharedOf(std::uint8_t theirs) {
    return std::make_shared<const Nacl::SharedKey>(keysOf(theirs).publicKey, keysOf(1).secretKey);
}

PublicKey numbered(std::uint32_t number) {
    PublicKey key{};
    std::memcpy(key.data(), &number, sizeof number);
    return key;
}

TEST(SharedKeyCacheTest, WhatWasKeptIsFoundUnderItsKeyAlone) {
    SharedKeyCache cache;
    const auto two = sharedOf(2), three = sharedOf(3);
    EXPECT_FALSE(cache.find(keysOf(2).publicKey));
    cache.keep(keysOf(2).publicKey, two);
    cache.keep(keysOf(3).publicKey, three);
    EXPECT_EQ(cache.find(keysOf(2).publicKey), two);
    EXPECT_EQ(cache.find(keysOf(3).publicKey), three);
    EXPECT_FALSE(cache.find(keysOf(4).publicKey));
}

TEST(SharedKeyCacheTest, KeysThatDifferInAnyOneByteAreDifferent) {
    SharedKeyCache cache;
    const PublicKey base = keysOf(2).publicKey;
    cache.keep(base, sharedOf(2));
    for (std::size_t i = 0; i < base.size(); ++i) {
        PublicKey other = base;
        other[i] ^= 1;
        EXPECT_FALSE(cache.find(other)) << i;
    }
}

TEST(SharedKeyCacheTest, KeepingAgainReplaces) {
    SharedKeyCache cache;
    const auto later = sharedOf(3);
    cache.keep(keysOf(2).publicKey, sharedOf(2));
    cache.keep(keysOf(2).publicKey, later);
    EXPECT_EQ(cache.find(keysOf(2).publicKey), later);
}

TEST(SharedKeyCacheTest, AtItsLimitItStartsOver) {
    SharedKeyCache cache;
    const auto entry = sharedOf(2);
    for (std::uint32_t i = 0; i < SharedKeyCache::limit; ++i) cache.keep(numbered(i), entry);
    EXPECT_TRUE(cache.find(numbered(0)));
    EXPECT_TRUE(cache.find(numbered(SharedKeyCache::limit - 1)));
    EXPECT_EQ(entry.use_count(), static_cast<long>(SharedKeyCache::limit) + 1);

    cache.keep(numbered(SharedKeyCache::limit), entry);
    EXPECT_FALSE(cache.find(numbered(0)));
    EXPECT_TRUE(cache.find(numbered(SharedKeyCache::limit)));
    EXPECT_EQ(entry.use_count(), 2);
}

TEST(SharedKeyCacheTest, AnEntryOutlivesItsCache) {
    SharedKeyCache::Entry entry;
    {
        SharedKeyCache cache;
        cache.keep(keysOf(2).publicKey, sharedOf(2));
        entry = cache.find(keysOf(2).publicKey);
    }
    const Nonce nonce{};
    Bytes sealed(Nacl::authenticatorBytes + 2);
    entry->box(bytesOf("hi"), nonce, sealed);
    EXPECT_EQ(textOf(Nacl::open(sealed, nonce, keysOf(1).publicKey, keysOf(2).secretKey)), "hi");
}

}  // namespace
