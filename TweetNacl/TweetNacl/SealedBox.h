#pragma once

#include "TweetNacl/Nacl.h"

#include <array>
#include <cstdint>
#include <string>

/// A passphrase that somebody has typed: UTF-8, move-only, wiped when it dies or is moved from.
class Passphrase {
public:
    Passphrase() = default;
    /// Takes the text's place and wipes what the caller held.
    explicit Passphrase(std::string&& text);
    Passphrase(Passphrase&& other) noexcept = default;
    Passphrase& operator=(Passphrase&& other) noexcept;
    Passphrase(const Passphrase&) = delete;
    Passphrase& operator=(const Passphrase&) = delete;
    ~Passphrase();

    ByteView view() const { return bytes; }
    bool isEmpty() const { return bytes.empty(); }

private:
    Bytes bytes;  // not a string: a short one would leave its text behind when it is moved
};

/// Boxes sealed under a secret that one party keeps, and the way from a passphrase to such a secret.
namespace Nacl {

constexpr std::size_t saltBytes = 16;
using Salt = std::array<std::uint8_t, saltBytes>;

/// What each guess of a passphrase costs, whoever makes it.
struct PassphraseCost {
    std::uint64_t passes = 3;               // at least 1
    std::uint64_t memoryBytes = 256 << 20;  // at least 8 KiB; taken for the length of the call
    // The defaults are libsodium's "moderate": some 0.7 s.

    bool operator==(const PassphraseCost&) const = default;
};

/// The secret that belongs to a passphrase: Argon2id, version 1.3, one lane.
/// Source: crypto_pwhash of libsodium.
/// @throws NaclError internalError  a cost that is out of bounds, or not enough memory
[[nodiscard]] SecretKey keyFromPassphrase(const Passphrase& passphrase, const Salt& salt, const PassphraseCost& cost);

/// Seals a message of any length under a secret: XSalsa20 and Poly1305.
/// Source: crypto_secretbox of NaCl.
/// @param nonce  never to be used twice with one secret; a random one will do
/// @return 16 bytes of authenticator, then the ciphertext
[[nodiscard]] Bytes secretBox(ByteView message, const Nonce& nonce, const SecretKey& secret);

/// @return the whole message; never a part of one. It may be a secret: whoever asked for it wipes it.
/// @throws NaclError internalError  altered, cut short, or sealed under another secret or nonce
[[nodiscard]] Bytes openSecretBox(ByteView sealed, const Nonce& nonce, const SecretKey& secret);

}  // namespace Nacl
