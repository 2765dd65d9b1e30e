#include "TweetNacl/BoxesOfBytes.h"

namespace Nacl {
namespace {

/// What a box takes besides its message, made of bytes. The fields are checked in their order.
struct Parts {
    Parts(ByteView nonce, ByteView publicKey, ByteView secretKey)
        : nonce(nonceFromBytes(nonce)), publicKey(publicKeyFromBytes(publicKey)), secretKey(secretKey) {}

    const Nonce nonce;
    const PublicKey publicKey;
    const SecretKey secretKey;
};

}  // namespace

Bytes box(ByteView message, ByteView nonce, ByteView recipientPublicKey, ByteView senderSecretKey) {
    const Parts parts(nonce, recipientPublicKey, senderSecretKey);
    return box(message, parts.nonce, parts.publicKey, parts.secretKey);
}

Bytes open(ByteView sealed, ByteView nonce, ByteView senderPublicKey, ByteView recipientSecretKey) {
    const Parts parts(nonce, senderPublicKey, recipientSecretKey);
    return open(sealed, parts.nonce, parts.publicKey, parts.secretKey);
}

}  // namespace Nacl
