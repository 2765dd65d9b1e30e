#pragma once

#include "Base/Bytes.h"
#include "StateKit/Record.h"
#include "TweetNacl/Nacl.h"

#include <cstddef>
#include <optional>
#include <string>
#include <tuple>

/// A name of the format. Nothing throws it: what can't be decoded yields no value.
enum class PackError { badEncoding };

class EncryptedPack;

/// An open pack: its author, its target and its contents. Everything after the greeting travels in packs.
///
/// If `decrypted` gave the pack, its `authorKey` is proved; its `targetKey` has not been checked.
struct Pack {
    PublicKey authorKey;
    PublicKey targetKey;
    std::optional<Nonce> nonce;  // if absent, `encrypted` draws one
    Bytes plaintext;

    /// Seals the contents for the target. Does not check that `authorKey` belongs to the secret key: if it
    /// does not, no reader can open the pack.
    /// @throws NaclError internalError  the target's key is no usable point
    [[nodiscard]] EncryptedPack encrypted(const SecretKey& authorSecretKey) const;

    bool operator==(const Pack&) const = default;
};

/// A sealed pack.
///
/// Wire form, with no header, no lengths and no version, one pack in each binary message:
/// author key (32 bytes), target key (32), nonce (24), ciphertext (the rest, at least 1).
class EncryptedPack {
public:
    static constexpr std::size_t authorOffset = 0;
    static constexpr std::size_t targetOffset = 32;
    static constexpr std::size_t nonceOffset = 64;
    static constexpr std::size_t ciphertextOffset = 88;

    EncryptedPack(const PublicKey& authorKey, const PublicKey& targetKey, const Nonce& nonce, Bytes ciphertext);

    /// Cuts a frame into its fields. Nothing for 88 bytes or fewer.
    [[nodiscard]] static std::optional<EncryptedPack> parse(ByteView frame);

    /// Opens the pack for its reader.
    /// @throws NaclError internalError  wrong reader, altered frame
    [[nodiscard]] Pack decrypted(const SecretKey& targetSecretKey) const;

    /// The wire form.
    [[nodiscard]] Bytes bytes() const;

    bool operator==(const EncryptedPack&) const = default;

    PublicKey authorKey;
    PublicKey targetKey;
    Nonce nonce;
    Bytes ciphertext;  // 16 bytes of authenticator, then as many bytes as the plaintext has
};

/// A view of a frame as a pack, with nothing copied but the nonce: for the relay, which passes packs on, and for the client,
/// which opens them. Valid as long as the frame.
struct PackView {
    [[nodiscard]] static std::optional<PackView> of(ByteView frame);

    PublicKey authorKey() const;
    PublicKey targetKey() const;

    std::span<const std::uint8_t, Nacl::publicKeyBytes> author;
    std::span<const std::uint8_t, Nacl::publicKeyBytes> target;
    Nonce nonce;
    ByteView ciphertext;  // at least 1 byte
};

/// Seals one frame under a key computed beforehand: the wire form, in one allocation.
/// @throws NaclError internalError
[[nodiscard]] Bytes sealedFrame(const PublicKey& author, const PublicKey& target, const Nonce& nonce,
                                ByteView plaintext, const Nacl::SharedKey& sharedKey);

/// What people send each other inside a pack.
///
/// JSON: {"kind": optional text, "name": text, "emoji": text, "text": optional text}; an absent value
/// writes no key. "kind" is "room" for a message to the room; without "text" it only says who the
/// writer is now.
struct PackPlaintext {
    std::optional<std::string> kind;
    std::string name;
    std::string emoji;
    std::optional<std::string> text;

    static constexpr auto fields =
        std::tuple{Field{"kind", &PackPlaintext::kind}, Field{"name", &PackPlaintext::name},
                   Field{"emoji", &PackPlaintext::emoji}, Field{"text", &PackPlaintext::text}};

    /// The JSON form. @throws JsonError  for text that is not UTF-8
    [[nodiscard]] Bytes encoded() const;

    /// Gives nothing if the bytes are no JSON form of this record.
    [[nodiscard]] static std::optional<PackPlaintext> decoded(ByteView json);

    bool operator==(const PackPlaintext&) const = default;
};
