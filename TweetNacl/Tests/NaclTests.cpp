#include "TweetNacl/Nacl.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

using testing::IsEmpty;

namespace {

Bytes bytes(std::string_view hex) { return Nacl::fromHex(hex).value(); }

// The vector of crypto_box in Daniel J. Bernstein, "Cryptography in NaCl", 2009, which libsodium's
// tests box.c and box2.c repeat. The key pairs are those of RFC 7748, section 6.1.
const SecretKey aliceSecret(bytes("77076d0a7318a57d3c16c17251b26645df4c2f87ebc0992ab177fba51db92c2a"));
const PublicKey alicePublic =
    Nacl::publicKeyFromBytes(bytes("8520f0098930a754748b7ddcb43ef75a0dbf3a0d26381af4eba4a98eaa9b4e6a"));
const SecretKey bobSecret(bytes("5dab087e624a8a4b79e17f8b83800ee66f3bb1292618b6fd1c2f8b27ff88e0eb"));
const PublicKey bobPublic =
    Nacl::publicKeyFromBytes(bytes("de9edb7d7b7dc1b4d35b61c2ece435373f8343c85b78674dadfc7e146f882b4f"));
const Nonce nonce = Nacl::nonceFromBytes(bytes("69696ee955b62b73cd62bda875fc73d68219e0036b7a0b37"));
const Bytes message = bytes(
    "be075fc53c81f2d5cf141316ebeb0c7b5228c52a4c62cbd44b66849b64244ffce5ecbaaf33bd751a1ac728d45e6c61296cdc3c01233561f41d"
    "b66cce"
    "314adb310e3be8250c46f06dceea3a7fa1348057e2f6556ad6b1318a024a838f21af1fde048977eb48f59ffd4924ca1c60902e52f0a089bc76"
    "897040"
    "e082f937763848645e0705");
const Bytes sealed = bytes(
    "f3ffc7703f9400e52a7dfb4b3d3305d98e993b9f48681273c29650ba32fc76ce48332ea7164d96a4476fb8c531a1186ac0dfc17c98dce87b4d"
    "a7f011"
    "ec48c97271d2c20f9b928fe2270d6fb863d51738b48eeee314a7cc8ab932164548e526ae90224368517acfeabd6bb3732bc0e9da99832b61ca"
    "01b6de"
    "56244a9e88d5f9b37973f622a43d14a6599b1f654cb45a74e355a5");

template <class Action>
std::optional<NaclErrorCode> errorOf(Action action) {
    try {
        action();
        return std::nullopt;
    } catch (const NaclError& error) {
        return error.code;
    }
}

TEST(NaclTest, TheVectorHasTheSizesThatItsPaperTells) {
    EXPECT_EQ(message.size(), 131u);
    EXPECT_EQ(sealed.size(), 147u);
}

TEST(NaclTest, SealsThePublishedVector) {
    EXPECT_EQ(Nacl::hex(Nacl::box(message, nonce, bobPublic, aliceSecret)), Nacl::hex(sealed));
    EXPECT_EQ(Nacl::hex(Nacl::box(message, nonce, alicePublic, bobSecret)), Nacl::hex(sealed));
}

TEST(NaclTest, OpensThePublishedVector) {
    EXPECT_EQ(Nacl::open(sealed, nonce, alicePublic, bobSecret), message);
    EXPECT_EQ(Nacl::open(sealed, nonce, bobPublic, aliceSecret), message);
}

TEST(NaclTest, DerivesThePublishedPublicKeys) {
    EXPECT_EQ(Nacl::hex(Nacl::publicKey(aliceSecret)), Nacl::hex(alicePublic));
    EXPECT_EQ(Nacl::hex(Nacl::publicKey(bobSecret)), Nacl::hex(bobPublic));
}

TEST(NaclTest, HashesThePublishedVectors) {
    // FIPS 180-4 and its examples.
    EXPECT_EQ(Nacl::hex(Nacl::hash(bytesOf("abc"))),
              "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd454d4423"
              "643ce80e2a9ac94fa54ca49f");
    EXPECT_EQ(Nacl::hex(Nacl::hash({})),
              "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce47d0d13c5d85f2b0ff8318d2877eec2f63b931bd"
              "47417a81a538327af927da3e");
}

TEST(NaclTest, AnEmptyMessageIsSixteenBytesSealed) {
    const Bytes empty = Nacl::box({}, nonce, bobPublic, aliceSecret);
    EXPECT_EQ(empty.size(), 16u);
    EXPECT_THAT(Nacl::open(empty, nonce, alicePublic, bobSecret), IsEmpty());
}

TEST(NaclTest, AFlippedBitInAnyByteIsRefused) {
    for (std::size_t i = 0; i < sealed.size(); ++i)
        for (const int bit : {0, 3, 7}) {
            Bytes altered = sealed;
            altered[i] ^= static_cast<std::uint8_t>(1 << bit);
            EXPECT_EQ(errorOf([&] { (void)Nacl::open(altered, nonce, alicePublic, bobSecret); }),
                      NaclErrorCode::internalError)
                << i;
        }
}

TEST(NaclTest, ACutOrLengthenedMessageIsRefused) {
    for (std::size_t length = 0; length < sealed.size(); ++length) {
        const ByteView cut = ByteView(sealed).first(length);
        EXPECT_EQ(errorOf([&] { (void)Nacl::open(cut, nonce, alicePublic, bobSecret); }), NaclErrorCode::internalError)
            << length;
    }
    Bytes longer = sealed;
    longer.push_back(0);
    EXPECT_EQ(errorOf([&] { (void)Nacl::open(longer, nonce, alicePublic, bobSecret); }), NaclErrorCode::internalError);
}

TEST(NaclTest, AnotherNonceOrKeyIsRefused) {
    Nonce otherNonce = nonce;
    otherNonce.back() ^= 1;
    EXPECT_EQ(errorOf([&] { (void)Nacl::open(sealed, otherNonce, alicePublic, bobSecret); }),
              NaclErrorCode::internalError);
    EXPECT_EQ(errorOf([&] { (void)Nacl::open(sealed, nonce, bobPublic, bobSecret); }), NaclErrorCode::internalError);
    EXPECT_EQ(errorOf([&] { (void)Nacl::open(sealed, nonce, alicePublic, Nacl::keyPair().secretKey); }),
              NaclErrorCode::internalError);
}

TEST(NaclTest, APublicKeyAndANonceAreMadeOfBytesOfTheirSizeAlone) {
    EXPECT_EQ(Nacl::publicKeyFromBytes(bobPublic), bobPublic);
    EXPECT_EQ(Nacl::nonceFromBytes(nonce), nonce);
    for (const std::size_t size : {0u, 31u, 33u, 64u})
        EXPECT_EQ(errorOf([&] { (void)Nacl::publicKeyFromBytes(Bytes(size)); }), NaclErrorCode::badPublicKeySize)
            << size;
    for (const std::size_t size : {0u, 23u, 25u, 32u})
        EXPECT_EQ(errorOf([&] { (void)Nacl::nonceFromBytes(Bytes(size)); }), NaclErrorCode::badNonceSize) << size;
}

TEST(NaclTest, APublicKeyThatIsNoUsablePointIsAnInternalError) {
    const PublicKey zero{};
    EXPECT_EQ(errorOf([&] { (void)Nacl::box(message, nonce, zero, aliceSecret); }), NaclErrorCode::internalError);
    EXPECT_EQ(errorOf([&] { (void)Nacl::open(sealed, nonce, zero, bobSecret); }), NaclErrorCode::internalError);
}

TEST(NaclTest, MessagesOfAllSizesComeBack) {
    for (const std::size_t size : {1u, 15u, 16u, 17u, 31u, 32u, 33u, 63u, 64u, 65u, 1000u, 100'000u}) {
        Bytes text(size);
        Nacl::randomBytes(text);
        const Bytes boxed = Nacl::box(text, nonce, bobPublic, aliceSecret);
        EXPECT_EQ(boxed.size(), size + 16);
        EXPECT_EQ(Nacl::open(boxed, nonce, alicePublic, bobSecret), text);
    }
}

TEST(NaclTest, AKeyPairOpensWhatIsSealedForIt) {
    const Nacl::KeyPair pair = Nacl::keyPair();
    EXPECT_EQ(Nacl::publicKey(pair.secretKey), pair.publicKey);
    const Bytes boxed = Nacl::box(message, nonce, pair.publicKey, aliceSecret);
    EXPECT_EQ(Nacl::open(boxed, nonce, alicePublic, pair.secretKey), message);
}

TEST(NaclTest, RandomNoncesAndKeysDiffer) {
    std::set<Nonce> nonces;
    std::set<PublicKey> keys;
    for (int i = 0; i < 100; ++i) {
        nonces.insert(Nacl::randomNonce());
        keys.insert(Nacl::keyPair().publicKey);
    }
    EXPECT_EQ(nonces.size(), 100u);
    EXPECT_EQ(keys.size(), 100u);
}

TEST(NaclTest, RandomBytesFillTheWholeBufferAndNoMore) {
    for (const std::size_t size : {0u, 1u, 255u, 256u, 257u, 100'000u}) {
        Bytes buffer(size + 1, 0);
        std::vector<bool> wasSet(size);
        // A byte stays 0 by chance once in 256 times; not in twelve fillings.
        for (int filling = 0; filling < 12; ++filling) {
            Nacl::randomBytes(std::span(buffer).first(size));
            for (std::size_t i = 0; i < size; ++i) wasSet[i] = wasSet[i] || buffer[i] != 0;
        }
        EXPECT_EQ(std::count(wasSet.begin(), wasSet.end(), false), 0) << size;
        EXPECT_EQ(buffer.back(), 0);
    }
}

/// From here on, asking the kernel for random bytes fails in this process.
void failRandomSource() {
    sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getrandom, 0, 1),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    sock_fprog filter = {4, program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        std::exit(77);
}

TEST(NaclDeathTest, AFailingRandomSourceEndsTheProcess) {
    const auto isTheLine = testing::MatchesRegex("Generating random data failed, exiting");
    EXPECT_EXIT((failRandomSource(), (void)Nacl::keyPair()), testing::ExitedWithCode(1), isTheLine);
    EXPECT_EXIT((failRandomSource(), (void)Nacl::randomNonce()), testing::ExitedWithCode(1), isTheLine);
}

TEST(NaclTest, HexIsTwoLowerCaseCharactersAByte) {
    EXPECT_EQ(Nacl::hex({}), "");
    EXPECT_EQ(Nacl::hex(Bytes{0x00, 0x0f, 0xf0, 0xab, 0xff}), "000ff0abff");
    EXPECT_EQ(Nacl::hex(Bytes(32)), std::string(64, '0'));
}

TEST(NaclTest, FromHexTakesBothCases) {
    EXPECT_EQ(Nacl::fromHex("AB"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("aBfF09"), (Bytes{0xab, 0xff, 0x09}));
    EXPECT_EQ(Nacl::hex(*Nacl::fromHex("AB")), "ab");
}

TEST(NaclTest, EveryByteComesBackFromHex) {
    Bytes all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<std::uint8_t>(i));
    EXPECT_EQ(Nacl::fromHex(Nacl::hex(all)), all);
}

TEST(NaclTest, FromHexIgnoresAnOddLastCharacterWhateverItIs) {
    EXPECT_EQ(Nacl::fromHex("abc"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("abz"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("abé"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("ab漢"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("ab😀"), (Bytes{0xab}));
    EXPECT_EQ(Nacl::fromHex("a"), Bytes{});
    EXPECT_EQ(Nacl::fromHex("é"), Bytes{});
}

TEST(NaclTest, FromHexOfAnythingElseIsNothing) {
    for (const char* text : {"zz", "abzz", "zzab", "0x",   "0g",   "g0",    " a",   "a ",   "-1",   "ab\n0", "aé",
                             "éa", "éé",   "abcé", "abéc", "ab é", "a\xFF", "ab@0", "ab/0", "ab:0", "ab`0",  "abG0"})
        EXPECT_EQ(Nacl::fromHex(text), std::nullopt) << text;
    EXPECT_EQ(Nacl::fromHex(std::string_view("a\0", 2)), std::nullopt);
}

TEST(NaclTest, FromHexOfAnEmptyTextIsNoBytesAndNotNothing) { EXPECT_EQ(Nacl::fromHex(""), Bytes{}); }

TEST(NaclTest, APublicKeyIsReadFromSixtyFourDigits) {
    const std::string text = Nacl::hex(alicePublic);
    const auto key = Nacl::publicKeyFromHex(text);
    ASSERT_TRUE(key);
    EXPECT_EQ(Nacl::hex(*key), text);
    EXPECT_EQ(Nacl::publicKeyFromHex(text + "x"), key);
    EXPECT_EQ(Nacl::publicKeyFromHex(text + "é"), key);
    EXPECT_EQ(Nacl::publicKeyFromHex(text + "😀"), key);
    for (const std::string& wrong :
         {std::string(), text.substr(1), text.substr(2), text + "00", text + "xyz", text + "éé", text.substr(1) + "x",
          text.substr(2) + "é", std::string(1'000'000, '0')})
        EXPECT_EQ(Nacl::publicKeyFromHex(wrong), std::nullopt) << wrong.substr(0, 80);
}

TEST(NaclTest, ASecretKeyIsReadFromSixtyFourDigitsAsAPublicOneIs) {
    const std::string text = Nacl::hex(aliceSecret.view());
    for (const std::string& right : {text, text + "x", text + "é", text + "😀"}) {
        const auto key = Nacl::secretKeyFromHex(right);
        ASSERT_TRUE(key) << right;
        EXPECT_TRUE(*key == aliceSecret) << right;
    }
    std::string upper = text;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_TRUE(Nacl::secretKeyFromHex(upper) == aliceSecret);
    for (const std::string& wrong :
         {std::string(), text.substr(1), text.substr(2), text + "00", text + "xyz", text + "éé", text.substr(1) + "x",
          text.substr(2) + "é", text.substr(2) + "zz", std::string(1'000'000, '0')})
        EXPECT_FALSE(Nacl::secretKeyFromHex(wrong)) << wrong.substr(0, 80);
}

TEST(NaclTest, WipingOverwritesEveryByte) {
    Bytes secret(100, 7);
    Nacl::wipe(secret);
    EXPECT_EQ(secret, Bytes(100, 0));
    std::string text = "secret text that lies on the heap, surely";
    const char* memory = text.data();
    Nacl::wipe(text);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(memory[0], 0);
}

TEST(SharedKeyTest, SealsAndOpensByteForByteWhatBoxDoes) {
    const Nacl::SharedKey ours(bobPublic, aliceSecret), theirs(alicePublic, bobSecret);
    Bytes boxed(sealed.size());
    ours.box(message, nonce, boxed);
    EXPECT_EQ(boxed, sealed);
    EXPECT_EQ(theirs.open(boxed, nonce), message);
    Bytes empty(16);
    theirs.box({}, nonce, empty);
    EXPECT_EQ(empty, Nacl::box({}, nonce, alicePublic, bobSecret));
}

TEST(SharedKeyTest, RefusesAWeakKeyAWrongRoomAndAlteredMessages) {
    EXPECT_EQ(errorOf([&] { Nacl::SharedKey(PublicKey{}, aliceSecret); }), NaclErrorCode::internalError);
    const Nacl::SharedKey key(alicePublic, bobSecret);
    Bytes room(message.size() + 15);
    EXPECT_EQ(errorOf([&] { key.box(message, nonce, room); }), NaclErrorCode::internalError);
    room.resize(message.size() + 17);
    EXPECT_EQ(errorOf([&] { key.box(message, nonce, room); }), NaclErrorCode::internalError);
    room.resize(message.size() + 16);
    EXPECT_EQ(errorOf([&] { (void)key.open(ByteView(sealed).first(15), nonce); }), NaclErrorCode::internalError);
    Bytes altered = sealed;
    altered[20] ^= 1;
    EXPECT_EQ(errorOf([&] { (void)key.open(altered, nonce); }), NaclErrorCode::internalError);
}

TEST(SharedKeyTest, WorksOnAfterAMove) {
    Nacl::SharedKey key(alicePublic, bobSecret);
    const Nacl::SharedKey moved = std::move(key);
    EXPECT_EQ(moved.open(sealed, nonce), message);
}

static_assert(!std::is_copy_constructible_v<SecretKey> && !std::is_copy_assignable_v<SecretKey>);
static_assert(!std::is_copy_constructible_v<Nacl::SharedKey>);

TEST(SecretKeyTest, HasExactlyThirtyTwoBytes) {
    EXPECT_EQ(errorOf([] { SecretKey(Bytes(31)); }), NaclErrorCode::badSecretKeySize);
    EXPECT_EQ(errorOf([] { SecretKey(Bytes(33)); }), NaclErrorCode::badSecretKeySize);
    EXPECT_EQ(errorOf([] { SecretKey(Bytes{}); }), NaclErrorCode::badSecretKeySize);
    EXPECT_EQ(SecretKey().view().size(), 32u);
}

TEST(SecretKeyTest, ComparesByContent) {
    EXPECT_TRUE(SecretKey(aliceSecret.view()) == aliceSecret);
    EXPECT_FALSE(aliceSecret == bobSecret);
    EXPECT_TRUE(aliceSecret.duplicate() == aliceSecret);
}

TEST(SecretKeyTest, IsWipedWhenItIsMovedFrom) {
    SecretKey key = aliceSecret.duplicate();
    SecretKey moved = std::move(key);
    EXPECT_TRUE(key == SecretKey());
    EXPECT_TRUE(moved == aliceSecret);
    key = std::move(moved);
    EXPECT_TRUE(moved == SecretKey());
    EXPECT_TRUE(key == aliceSecret);
    SecretKey& self = key;
    key = std::move(self);
    EXPECT_TRUE(key == aliceSecret);
}

TEST(SecretKeyTest, IsWipedWhenItDies) {
    alignas(SecretKey) std::byte memory[sizeof(SecretKey)];
    auto* key = new (memory) SecretKey(aliceSecret.view());
    key->~SecretKey();
    EXPECT_THAT(std::vector<std::byte>(memory, memory + sizeof memory), testing::Each(std::byte(0)));
}

TEST(NaclErrorTest, EachHasAText) {
    for (const auto code : {NaclErrorCode::badKeySize, NaclErrorCode::badNonceSize, NaclErrorCode::badPublicKeySize,
                            NaclErrorCode::badSecretKeySize, NaclErrorCode::internalError})
        EXPECT_STRNE(NaclError(code).what(), "");
    EXPECT_TRUE(NaclError(NaclErrorCode::badKeySize) == NaclError(NaclErrorCode::badKeySize));
    EXPECT_FALSE(NaclError(NaclErrorCode::badKeySize) == NaclError(NaclErrorCode::internalError));
}

}  // namespace
