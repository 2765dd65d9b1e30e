#pragma once

#include "Base/Bytes.h"

#include <array>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

/// Why a box was not made or not opened.
///
/// `badKeySize` is reserved: no operation raises it.
enum class NaclErrorCode { badKeySize, badNonceSize, badPublicKeySize, badSecretKeySize, internalError };

class [[nodiscard]] NaclError : public std::exception {
public:
    explicit NaclError(NaclErrorCode code) : code(code) {}

    const char* what() const noexcept override;
    bool operator==(const NaclError& other) const { return code == other.code; }

    NaclErrorCode code;
};

/// The public half of a key pair: a point on Curve25519, 32 bytes.
using PublicKey = std::array<std::uint8_t, 32>;

/// 24 bytes that must never serve twice for one pair of keys.
using Nonce = std::array<std::uint8_t, 24>;

/// The secret half of a key pair, 32 bytes.
///
/// Move-only, wiped when it dies or is moved from, compared in constant time, never printed.
class SecretKey {
public:
    static constexpr std::size_t size = 32;

    /// 32 zero bytes, to be filled in.
    SecretKey() = default;
    /// @throws NaclError badSecretKeySize
    explicit SecretKey(ByteView bytes);
    SecretKey(SecretKey&& other) noexcept;
    SecretKey& operator=(SecretKey&& other) noexcept;
    SecretKey(const SecretKey&) = delete;
    SecretKey& operator=(const SecretKey&) = delete;
    ~SecretKey();

    /// A second copy, where one is really needed.
    [[nodiscard]] SecretKey duplicate() const { return SecretKey(view()); }
    ByteView view() const { return bytes; }
    std::span<std::uint8_t> writable() { return bytes; }
    bool operator==(const SecretKey& other) const;

private:
    std::array<std::uint8_t, size> bytes{};
};

/// The only door to cryptography: the operations of the NaCl family, and hexadecimal text.
///
/// No state; any thread. Source: the NaCl-compatible calls of libsodium, whose constants give every
/// size here. Sealed bytes are 16 bytes of authenticator, then as many bytes as the message.
///
/// Nonces and keys are types of their own, so that the compiler refuses a swapped pair, and a wrong size
/// is found where bytes become one of them. `BoxesOfBytes.h` has the same boxes for plain bytes.
namespace Nacl {

constexpr std::size_t publicKeyBytes = 32;
constexpr std::size_t secretKeyBytes = 32;
constexpr std::size_t nonceBytes = 24;
constexpr std::size_t authenticatorBytes = 16;
constexpr std::size_t hashBytes = 64;

struct KeyPair {
    PublicKey publicKey;
    SecretKey secretKey;
};

/// What two keys have in common, computed once for many messages.
///
/// `crypto_box` computes this anew for each message, which is 98 % of its cost; the bytes that come
/// out are the same. Move-only and wiped, like the secret key that it was made from.
class SharedKey {
public:
    /// @throws NaclError internalError  the public key is no usable point (all its multiples are zero)
    SharedKey(const PublicKey& publicKey, const SecretKey& secretKey);
    SharedKey(SharedKey&& other) noexcept = default;
    SharedKey& operator=(SharedKey&& other) noexcept = default;

    /// Seals `message` into `sealed`, which is exactly 16 bytes longer.
    /// @throws NaclError internalError  the sizes don't fit
    void box(ByteView message, const Nonce& nonce, std::span<std::uint8_t> sealed) const;

    /// Opens `sealed`. @return the whole message, never a part of one
    /// @throws NaclError internalError  it was altered, sealed under other keys, or is shorter than 16 bytes
    [[nodiscard]] Bytes open(ByteView sealed, const Nonce& nonce) const;

private:
    SecretKey bytes;
};

/// Seals a message of any length, also none.
/// @throws NaclError internalError  the public key is no usable point
[[nodiscard]] Bytes box(ByteView message, const Nonce& nonce, const PublicKey& recipientPublicKey,
                        const SecretKey& senderSecretKey);

/// Opens a sealed message.
/// @param sealed  16 bytes of authenticator, then the ciphertext
/// @return the whole message; never a part of one
/// @throws NaclError internalError  it was not sealed by that sender for us, was altered, or is shorter
///         than 16 bytes
[[nodiscard]] Bytes open(ByteView sealed, const Nonce& nonce, const PublicKey& senderPublicKey,
                         const SecretKey& recipientSecretKey);

/// A new key pair from the system's random source. Ends the process if that source fails: a key
/// must never come from a failed one.
[[nodiscard]] KeyPair keyPair();

[[nodiscard]] PublicKey publicKey(const SecretKey& secretKey);

/// A key out of bytes of any size. @throws NaclError badPublicKeySize
[[nodiscard]] PublicKey publicKeyFromBytes(ByteView bytes);

/// A nonce out of bytes of any size. @throws NaclError badNonceSize
[[nodiscard]] Nonce nonceFromBytes(ByteView bytes);

[[nodiscard]] Nonce randomNonce();

/// Fills a buffer from the system's random source: many nonces in one call to the kernel.
void randomBytes(std::span<std::uint8_t> buffer);

/// SHA-512, 64 bytes.
[[nodiscard]] std::array<std::uint8_t, hashBytes> hash(ByteView bytes);

/// Two lower-case characters a byte, high nibble first.
[[nodiscard]] std::string hex(ByteView bytes);

/// The bytes of a hexadecimal text, in either case. An odd last character is ignored; nothing if any
/// pair is not hexadecimal. An empty text gives no bytes, which is not the same as nothing.
[[nodiscard]] std::optional<Bytes> fromHex(std::string_view text);

/// A key from its text form: nothing unless the text gives exactly 32 bytes.
[[nodiscard]] std::optional<PublicKey> publicKeyFromHex(std::string_view text);

/// The same for a secret key. Leaves no copy of it in memory besides the text and the result.
[[nodiscard]] std::optional<SecretKey> secretKeyFromHex(std::string_view text);

/// Overwrites what held a secret, in a way that the compiler may not leave out.
void wipe(std::span<std::uint8_t> bytes);
void wipe(std::string& text);

}  // namespace Nacl
