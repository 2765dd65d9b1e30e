#pragma once

#include "TweetNacl/Nacl.h"

/// The boxes of `Nacl` for whoever has nothing but bytes: sizes are checked here and nowhere else.
///
/// Whoever can name a `Nonce`, a `PublicKey` and a `SecretKey` takes `Nacl.h` instead, where the compiler
/// sees a swapped pair: to these operations all arguments look alike.
namespace Nacl {

/// Seals a message of any length, also none.
/// @throws NaclError  the first wrong size, in the order nonce, public key, secret key; internalError
///         for a public key that is no usable point
[[nodiscard]] Bytes box(ByteView message, ByteView nonce, ByteView recipientPublicKey, ByteView senderSecretKey);

/// Opens a sealed message.
/// @param sealed  16 bytes of authenticator, then the ciphertext
/// @return the whole message; never a part of one
/// @throws NaclError  the first wrong size, in the order nonce, public key, secret key, before the sealed
///         bytes are looked at; internalError when they were not sealed by that sender for us, were
///         altered, or are fewer than 16
[[nodiscard]] Bytes open(ByteView sealed, ByteView nonce, ByteView senderPublicKey, ByteView recipientSecretKey);

}  // namespace Nacl
