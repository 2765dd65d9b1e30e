#include "TweetNacl/BoxesOfBytes.h"

#include <optional>

#include <gtest/gtest.h>

namespace {

template <class Action>
std::optional<NaclErrorCode> errorOf(Action action) {
    try {
        action();
        return std::nullopt;
    } catch (const NaclError& error) {
        return error.code;
    }
}

class BoxesOfBytesTest : public testing::Test {
protected:
    static Bytes copyOf(ByteView bytes) { return Bytes(bytes.begin(), bytes.end()); }

    /// What both operations answer to these sizes; they must agree.
    std::optional<NaclErrorCode> refusal(ByteView usedNonce, ByteView publicKey, ByteView secretKey) {
        const auto boxed = errorOf([&] { (void)Nacl::box(message, usedNonce, publicKey, secretKey); });
        EXPECT_EQ(boxed, errorOf([&] { (void)Nacl::open(sealed, usedNonce, publicKey, secretKey); }));
        return boxed;
    }

    const Nacl::KeyPair ann = Nacl::keyPair(), bob = Nacl::keyPair();
    const Nonce nonce = Nacl::randomNonce();
    const Bytes nonceBytes = copyOf(nonce), bobPublic = copyOf(bob.publicKey), annSecret = copyOf(ann.secretKey.view());
    const Bytes message = copyOf(bytesOf("a text"));
    const Bytes sealed = Nacl::box(message, nonce, bob.publicKey, ann.secretKey);
};

TEST_F(BoxesOfBytesTest, TheyAreTheBoxesOfTheTypes) {
    EXPECT_EQ(Nacl::box(message, nonceBytes, bobPublic, annSecret), sealed);
    EXPECT_EQ(Nacl::open(sealed, nonceBytes, copyOf(ann.publicKey), copyOf(bob.secretKey.view())), message);
}

TEST_F(BoxesOfBytesTest, TheFirstWrongSizeDecidesInTheOrderNoncePublicKeySecretKey) {
    for (const std::size_t more : {0u, 2u}) {
        const Bytes wrongNonce(23 + more), wrongPublic(31 + more), wrongSecret(31 + more);
        EXPECT_EQ(refusal(wrongNonce, wrongPublic, wrongSecret), NaclErrorCode::badNonceSize);
        EXPECT_EQ(refusal(wrongNonce, wrongPublic, annSecret), NaclErrorCode::badNonceSize);
        EXPECT_EQ(refusal(wrongNonce, bobPublic, annSecret), NaclErrorCode::badNonceSize);
        EXPECT_EQ(refusal(nonceBytes, wrongPublic, wrongSecret), NaclErrorCode::badPublicKeySize);
        EXPECT_EQ(refusal(nonceBytes, wrongPublic, annSecret), NaclErrorCode::badPublicKeySize);
        EXPECT_EQ(refusal(nonceBytes, bobPublic, wrongSecret), NaclErrorCode::badSecretKeySize);
    }
    EXPECT_EQ(refusal({}, {}, {}), NaclErrorCode::badNonceSize);
}

TEST_F(BoxesOfBytesTest, ASizeErrorComesBeforeTheSealedBytesAreLookedAt) {
    EXPECT_EQ(errorOf([&] { (void)Nacl::open({}, Bytes(23), bobPublic, annSecret); }), NaclErrorCode::badNonceSize);
    EXPECT_EQ(errorOf([&] { (void)Nacl::open({}, nonceBytes, bobPublic, Bytes(33)); }),
              NaclErrorCode::badSecretKeySize);
}

TEST_F(BoxesOfBytesTest, APublicKeyThatIsNoUsablePointIsAnInternalError) {
    EXPECT_EQ(refusal(nonceBytes, Bytes(32), annSecret), NaclErrorCode::internalError);
}

TEST_F(BoxesOfBytesTest, SealedBytesThatAreAlteredOrTooFewAreAnInternalError) {
    Bytes altered = sealed;
    altered.back() ^= 1;
    for (const ByteView bytes : {ByteView(altered), ByteView(sealed).first(15), ByteView()})
        EXPECT_EQ(
            errorOf([&] { (void)Nacl::open(bytes, nonceBytes, copyOf(ann.publicKey), copyOf(bob.secretKey.view())); }),
            NaclErrorCode::internalError);
}

}  // namespace
