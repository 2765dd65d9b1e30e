#include "VimbleWire/Pack.h"

#include "StateKit/Json.h"

#include <algorithm>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::IsEmpty;

namespace {

struct PackTest : testing::Test {
    const Nacl::KeyPair author = Nacl::keyPair();
    const Nacl::KeyPair target = Nacl::keyPair();

    Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }
    Pack pack(std::string_view text, std::optional<Nonce> nonce = {}) {
        return {author.publicKey, target.publicKey, nonce, bytes(text)};
    }
    EncryptedPack sealed(std::string_view text) { return pack(text).encrypted(author.secretKey); }
    bool opens(const EncryptedPack& encrypted) {
        try {
            (void)encrypted.decrypted(target.secretKey);
            return true;
        } catch (const NaclError& error) {
            EXPECT_EQ(error.code, NaclErrorCode::internalError);
            return false;
        }
    }
};

TEST_F(PackTest, WhatWasSealedIsOpenedByItsTarget) {
    const EncryptedPack encrypted = sealed("text");
    EXPECT_EQ(encrypted.authorKey, author.publicKey);
    EXPECT_EQ(encrypted.targetKey, target.publicKey);
    EXPECT_EQ(encrypted.ciphertext.size(), 4u + 16u);
    const Pack opened = encrypted.decrypted(target.secretKey);
    EXPECT_EQ(opened, pack("text", encrypted.nonce));
}

TEST_F(PackTest, EachSealingWithoutANonceDrawsItsOwn) {
    const Pack open = pack("text");
    const EncryptedPack first = open.encrypted(author.secretKey), second = open.encrypted(author.secretKey);
    EXPECT_NE(first.nonce, second.nonce);
    EXPECT_NE(first.ciphertext, second.ciphertext);
    EXPECT_EQ(open.nonce, std::nullopt);
}

TEST_F(PackTest, AGivenNonceIsUsed) {
    const Nonce nonce = Nacl::randomNonce();
    const Pack open = pack("text", nonce);
    const EncryptedPack first = open.encrypted(author.secretKey);
    EXPECT_EQ(first.nonce, nonce);
    EXPECT_EQ(first.bytes(), open.encrypted(author.secretKey).bytes());
}

TEST_F(PackTest, TheWireFormIsTheFourFieldsOneAfterTheOther) {
    const EncryptedPack encrypted = sealed("text");
    Bytes expected(encrypted.authorKey.begin(), encrypted.authorKey.end());
    expected.insert(expected.end(), encrypted.targetKey.begin(), encrypted.targetKey.end());
    expected.insert(expected.end(), encrypted.nonce.begin(), encrypted.nonce.end());
    expected.insert(expected.end(), encrypted.ciphertext.begin(), encrypted.ciphertext.end());
    EXPECT_EQ(encrypted.bytes(), expected);
    EXPECT_EQ(expected.size(), 32u + 32u + 24u + 16u + 4u);
}

TEST_F(PackTest, AParsedFrameGivesItsBytesBack) {
    Bytes frame;
    for (int i = 0; i < 200; ++i) frame.push_back(static_cast<std::uint8_t>(i));
    const auto parsed = EncryptedPack::parse(frame);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->authorKey[0], 0);
    EXPECT_EQ(parsed->targetKey[0], 32);
    EXPECT_EQ(parsed->nonce[0], 64);
    EXPECT_EQ(parsed->nonce[23], 87);
    EXPECT_EQ(parsed->ciphertext.front(), 88);
    EXPECT_EQ(parsed->ciphertext.size(), 112u);
    EXPECT_EQ(parsed->bytes(), frame);
}

TEST_F(PackTest, AFrameOfEightyEightBytesOrFewerIsNothing) {
    for (std::size_t size = 0; size <= 88; ++size) {
        EXPECT_EQ(EncryptedPack::parse(Bytes(size)), std::nullopt) << size;
        EXPECT_FALSE(PackView::of(Bytes(size)).has_value()) << size;
    }
}

TEST_F(PackTest, AFrameOfEightyNineBytesParsesAndDoesNotOpen) {
    Bytes frame = sealed("").bytes();
    frame.resize(89);
    const auto parsed = EncryptedPack::parse(frame);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->ciphertext.size(), 1u);
    EXPECT_FALSE(opens(*parsed));
}

TEST_F(PackTest, ASealedEmptyMessageIsAFrameOfAHundredAndFourBytes) {
    const Bytes frame = sealed("").bytes();
    EXPECT_EQ(frame.size(), 104u);
    const auto parsed = EncryptedPack::parse(frame);
    ASSERT_TRUE(parsed);
    EXPECT_THAT(parsed->decrypted(target.secretKey).plaintext, IsEmpty());
}

TEST_F(PackTest, AFrameCutAnywhereDoesNotOpen) {
    const Bytes frame = sealed("some text").bytes();
    for (std::size_t size = 89; size < frame.size(); ++size) {
        const auto parsed = EncryptedPack::parse(ByteView(frame).first(size));
        ASSERT_TRUE(parsed);
        EXPECT_FALSE(opens(*parsed)) << size;
    }
}

TEST_F(PackTest, AnAlteredByteIsRefusedButInTheTargetKey) {
    // The target key is for the relay only: opening a pack does not check it.
    const Bytes frame = sealed("some text").bytes();
    for (std::size_t i = 0; i < frame.size(); ++i) {
        Bytes altered = frame;
        altered[i] ^= 1;
        const bool isInTarget = i >= EncryptedPack::targetOffset && i < EncryptedPack::nonceOffset;
        EXPECT_EQ(opens(EncryptedPack::parse(altered).value()), isInTarget) << i;
    }
}

TEST_F(PackTest, AnAuthorKeyThatWasReplacedIsRefused) {
    EncryptedPack encrypted = sealed("text");
    encrypted.authorKey = Nacl::keyPair().publicKey;
    EXPECT_FALSE(opens(encrypted));
}

TEST_F(PackTest, APackThatLiesAboutItsAuthorOpensForNobody) {
    const Nacl::KeyPair liar = Nacl::keyPair();
    EXPECT_FALSE(opens(pack("text").encrypted(liar.secretKey)));
}

TEST_F(PackTest, APackForSomebodyElseDoesNotOpen) {
    EXPECT_THROW((void)sealed("text").decrypted(Nacl::keyPair().secretKey), NaclError);
}

TEST_F(PackTest, ASecretKeyOfWrongSizeIsAnErrorBothWays) {
    const Bytes shortKey(31);
    for (const auto& action : {std::function<void()>([&] { (void)pack("text").encrypted(SecretKey(shortKey)); }),
                               std::function<void()>([&] { (void)sealed("text").decrypted(SecretKey(shortKey)); })}) {
        try {
            action();
            FAIL();
        } catch (const NaclError& error) {
            EXPECT_EQ(error.code, NaclErrorCode::badSecretKeySize);
        }
    }
}

TEST_F(PackTest, AViewSeesTheFieldsOfAFrame) {
    const EncryptedPack encrypted = sealed("text");
    const Bytes frame = encrypted.bytes();
    const auto view = PackView::of(frame);
    ASSERT_TRUE(view);
    EXPECT_EQ(view->authorKey(), encrypted.authorKey);
    EXPECT_EQ(view->targetKey(), encrypted.targetKey);
    EXPECT_EQ(view->nonce, encrypted.nonce);
    EXPECT_TRUE(std::equal(view->ciphertext.begin(), view->ciphertext.end(), encrypted.ciphertext.begin(),
                           encrypted.ciphertext.end()));
    EXPECT_EQ(view->author.data(), frame.data());
}

TEST_F(PackTest, AFrameSealedUnderAKeyComputedBeforehandIsTheSame) {
    const Nonce nonce = Nacl::randomNonce();
    const Nacl::SharedKey sharedKey(target.publicKey, author.secretKey);
    for (const char* text : {"", "text"})
        EXPECT_EQ(sealedFrame(author.publicKey, target.publicKey, nonce, bytes(text), sharedKey),
                  pack(text, nonce).encrypted(author.secretKey).bytes());
}

TEST(PackPlaintextTest, AnAbsentKindOrTextWritesNoKey) {
    EXPECT_EQ(textOf((PackPlaintext{{}, "Ann", "🦊", {}}).encoded()), R"({"name":"Ann","emoji":"🦊"})");
    EXPECT_EQ(textOf((PackPlaintext{"room", "", "", "hi"}).encoded()),
              R"({"kind":"room","name":"","emoji":"","text":"hi"})");
}

TEST(PackPlaintextTest, ComesBackAsItWas) {
    for (const PackPlaintext& plaintext :
         {PackPlaintext{}, PackPlaintext{"room", "Ann", "🦊", "a \"b\" \\ \n\r\t 漢"}, PackPlaintext{{}, "", "", ""},
          PackPlaintext{"", "", "", {}},
          PackPlaintext{{}, std::string("N\0L", 3), "e\xCC\x81 é", std::string(100'000, 'x')}})
        EXPECT_EQ(PackPlaintext::decoded(plaintext.encoded()), plaintext);
}

TEST(PackPlaintextTest, NameAndEmojiAreRequired) {
    EXPECT_EQ(PackPlaintext::decoded(bytesOf(R"({"name":"","emoji":""})")), PackPlaintext());
    for (const char* text : {R"({"text":"hi"})", R"({"name":"","text":"hi"})", R"({"emoji":"","text":"hi"})",
                             R"({"name":null,"emoji":""})", "{}"})
        EXPECT_EQ(PackPlaintext::decoded(bytesOf(text)), std::nullopt) << text;
}

TEST(PackPlaintextTest, KeyOrderAndUnknownKeysCountForNothing) {
    EXPECT_EQ(PackPlaintext::decoded(bytesOf(R"( {"text":"hi", "x":[{}], "emoji":"e", "kind":null, "name":"n"} )")),
              (PackPlaintext{{}, "n", "e", "hi"}));
    EXPECT_EQ(PackPlaintext::decoded(bytesOf(R"({"kind":"other","name":"n","emoji":"e"})"))->kind, "other");
}

TEST(PackPlaintextTest, WhatIsNoSuchRecordIsNothing) {
    for (const char* text : {"", "hi", "list", "[]", "null", R"({"name":"","emoji":""}x)", R"({"name":"","emoji":"")",
                             R"({"name":"","emoji":"","text":5})", R"({"name":"","emoji":"","kind":true})",
                             "{\"name\":\"\xFF\",\"emoji\":\"\"}", R"({"name":"\ud800","emoji":""})"})
        EXPECT_EQ(PackPlaintext::decoded(bytesOf(text)), std::nullopt) << text;
}

TEST(PackPlaintextTest, TextThatIsNotUtf8HasNoForm) {
    EXPECT_THROW((void)(PackPlaintext{{}, "\xFF", "", {}}).encoded(), JsonError);
    EXPECT_THROW((void)(PackPlaintext{{}, "", "", "a\xC3"}).encoded(), JsonError);
}

}  // namespace
