#include "TweetNacl/SealedBox.h"

#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

namespace {

Bytes bytes(std::string_view hex) { return Nacl::fromHex(hex).value(); }

// The vector of crypto_secretbox in Daniel J. Bernstein, "Cryptography in NaCl", 2009, which
// libsodium's tests secretbox.c and secretbox2.c repeat.
const Bytes key = bytes("1b27556473e985d462cd51197a9a46c76009549eac6474f206c4ee0844f68389");
const Bytes nonceBytes = bytes("69696ee955b62b73cd62bda875fc73d68219e0036b7a0b37");
const Bytes message = bytes(
    "be075fc53c81f2d5cf141316ebeb0c7b5228c52a4c62cbd44b66849b64244ffce5ecbaaf33bd751a1ac728d45e6c61296cdc3c01233561f41d"
    "b6"
    "6cce314adb310e3be8250c46f06dceea3a7fa1348057e2f6556ad6b1318a024a838f21af1fde048977eb48f59ffd4924ca1c60902e52f0a089"
    "bc"
    "76897040e082f937763848645e0705");
const Bytes sealed = bytes(
    "f3ffc7703f9400e52a7dfb4b3d3305d98e993b9f48681273c29650ba32fc76ce48332ea7164d96a4476fb8c531a1186ac0dfc17c98dce87b4d"
    "a7"
    "f011ec48c97271d2c20f9b928fe2270d6fb863d51738b48eeee314a7cc8ab932164548e526ae90224368517acfeabd6bb3732bc0e9da99832b"
    "61"
    "ca01b6de56244a9e88d5f9b37973f622a43d14a6599b1f654cb45a74e355a5");

Nonce nonce() {
    Nonce result;
    std::copy(nonceBytes.begin(), nonceBytes.end(), result.begin());
    return result;
}

Nacl::Salt salt() {
    Nacl::Salt result;
    const std::string_view text = "0123456789abcdef";
    std::copy(text.begin(), text.end(), result.begin());
    return result;
}

TEST(SealedBoxTest, SealsAndOpensThePublishedVector) {
    EXPECT_EQ(Nacl::secretBox(message, nonce(), SecretKey(key)), sealed);
    EXPECT_EQ(Nacl::openSecretBox(sealed, nonce(), SecretKey(key)), message);
}

TEST(SealedBoxTest, AnEmptyMessageIsSealedToo) {
    const Bytes box = Nacl::secretBox({}, nonce(), SecretKey(key));
    EXPECT_EQ(box.size(), Nacl::authenticatorBytes);
    EXPECT_EQ(Nacl::openSecretBox(box, nonce(), SecretKey(key)), Bytes());
}

TEST(SealedBoxTest, WhatIsAlteredCutShortOrForeignDoesNotOpen) {
    const auto refuses = [](ByteView box, const Nonce& n, const SecretKey& k) {
        try {
            (void)Nacl::openSecretBox(box, n, k);
        } catch (const NaclError& error) {
            return error.code == NaclErrorCode::internalError;
        }
        return false;
    };
    const SecretKey right(key);
    for (std::size_t at = 0; at < sealed.size(); ++at) {
        Bytes altered = sealed;
        altered[at] ^= 0x80;
        EXPECT_TRUE(refuses(altered, nonce(), right)) << at;
        EXPECT_TRUE(refuses(ByteView(sealed).first(at), nonce(), right)) << at;
    }
    Bytes longer = sealed;
    longer.push_back(0);
    EXPECT_TRUE(refuses(longer, nonce(), right));
    Nonce otherNonce = nonce();
    otherNonce[23] ^= 1;
    EXPECT_TRUE(refuses(sealed, otherNonce, right));
    Bytes otherKey = key;
    otherKey[0] ^= 1;
    EXPECT_TRUE(refuses(sealed, nonce(), SecretKey(otherKey)));
}

// Made with the reference implementation's command: argon2 0123456789abcdef -id -v 13 -t 3 -m 13 -p 1 -l 32 -r
TEST(SealedBoxTest, APassphrasesKeyIsThatOfArgon2id) {
    const SecretKey made = Nacl::keyFromPassphrase(Passphrase("correct horse battery"), salt(), {3, 8 << 20});
    EXPECT_TRUE(made == SecretKey(bytes("845607af0728047c407d90e85ffa7e3ca19b0592fd782c215efc58b3a5fffe9c")));
}

TEST(SealedBoxTest, EveryPartOfThePassphraseSaltAndCostCounts) {
    const Nacl::PassphraseCost cheap{1, 8192};
    const SecretKey made = Nacl::keyFromPassphrase(Passphrase("a"), salt(), cheap);
    EXPECT_TRUE(made == Nacl::keyFromPassphrase(Passphrase("a"), salt(), cheap));
    EXPECT_FALSE(made == Nacl::keyFromPassphrase(Passphrase("b"), salt(), cheap));
    EXPECT_FALSE(made == Nacl::keyFromPassphrase(Passphrase(""), salt(), cheap));
    EXPECT_FALSE(made == Nacl::keyFromPassphrase(Passphrase("a"), Nacl::Salt{}, cheap));
    EXPECT_FALSE(made == Nacl::keyFromPassphrase(Passphrase("a"), salt(), {2, 8192}));
    EXPECT_FALSE(made == Nacl::keyFromPassphrase(Passphrase("a"), salt(), {1, 16384}));
}

TEST(SealedBoxTest, ACostOutOfBoundsIsAnError) {
    for (const Nacl::PassphraseCost cost :
         {Nacl::PassphraseCost{0, 8192}, {1, 8191}, {1, 0}, {1ULL << 40, 8192}, {1, 1ULL << 60}})
        EXPECT_THROW((void)Nacl::keyFromPassphrase(Passphrase("a"), salt(), cost), NaclError)
            << cost.passes << " " << cost.memoryBytes;
}

TEST(PassphraseTest, TakesTheTextAwayAndIsMoveOnly) {
    static_assert(!std::is_copy_constructible_v<Passphrase> && !std::is_copy_assignable_v<Passphrase>);
    std::string text = "short";
    Passphrase first(std::move(text));
    EXPECT_TRUE(text.empty());  // NOLINT: wiped, which is the point
    EXPECT_EQ(textOf(first.view()), "short");
    Passphrase second(std::move(first));
    EXPECT_TRUE(first.isEmpty());  // NOLINT
    Passphrase third(std::string("another"));
    third = std::move(second);
    EXPECT_EQ(textOf(third.view()), "short");
    EXPECT_TRUE(second.isEmpty());  // NOLINT
    EXPECT_TRUE(Passphrase().isEmpty());
}

}  // namespace
