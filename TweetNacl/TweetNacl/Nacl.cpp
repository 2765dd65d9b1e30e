#include "TweetNacl/Nacl.h"

#include "Base/Check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sodium.h>
#include <utility>

#include <cerrno>
#include <sys/random.h>

static_assert(Nacl::publicKeyBytes == crypto_box_PUBLICKEYBYTES);
static_assert(Nacl::secretKeyBytes == crypto_box_SECRETKEYBYTES);
static_assert(Nacl::nonceBytes == crypto_box_NONCEBYTES);
static_assert(Nacl::authenticatorBytes == crypto_box_MACBYTES);
static_assert(Nacl::hashBytes == crypto_hash_BYTES && Nacl::hashBytes == crypto_hash_sha512_BYTES);
static_assert(SecretKey::size == crypto_box_BEFORENMBYTES, "a shared key is kept like a secret one");

const char* NaclError::what() const noexcept {
    switch (code) {
        case NaclErrorCode::badKeySize: return "Bad key size";
        case NaclErrorCode::badNonceSize: return "Bad nonce size";
        case NaclErrorCode::badPublicKeySize: return "Bad public key size";
        case NaclErrorCode::badSecretKeySize: return "Bad secret key size";
        case NaclErrorCode::internalError: return "The box could not be made or opened";
    }
    return "";
}

SecretKey::SecretKey(ByteView source) {
    if (source.size() != size) throw NaclError(NaclErrorCode::badSecretKeySize);
    std::copy(source.begin(), source.end(), bytes.begin());
}

SecretKey::SecretKey(SecretKey&& other) noexcept : bytes(other.bytes) { Nacl::wipe(other.bytes); }

SecretKey& SecretKey::operator=(SecretKey&& other) noexcept {
    if (this != &other) {
        bytes = other.bytes;
        Nacl::wipe(other.bytes);
    }
    return *this;
}

SecretKey::~SecretKey() { Nacl::wipe(bytes); }

bool SecretKey::operator==(const SecretKey& other) const {
    return sodium_memcmp(bytes.data(), other.bytes.data(), size) == 0;
}

namespace Nacl {
namespace {

constexpr char hexDigits[] = "0123456789abcdef";

/// Picks the fastest implementations that this processor has. Without it libsodium works all the
/// same, at a third of the speed.
[[maybe_unused]] const bool sodiumIsReady = [] {
    check(sodium_init() >= 0, "libsodium could not be initialised");
    return true;
}();

/// The value of each hexadecimal digit, and -1 for every other character.
constexpr std::array<std::int8_t, 256> digitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (int digit = 0; digit < 10; ++digit)
        values[static_cast<std::size_t>('0' + digit)] = static_cast<std::int8_t>(digit);
    for (int digit = 0; digit < 6; ++digit) {
        values[static_cast<std::size_t>('a' + digit)] = static_cast<std::int8_t>(10 + digit);
        values[static_cast<std::size_t>('A' + digit)] = static_cast<std::int8_t>(10 + digit);
    }
    return values;
}();

/// The text without an odd last character; nothing if it can't be hexadecimal, since a character that is
/// not ASCII stands within a pair.
std::optional<std::string_view> pairsOf(std::string_view text) {
    // Characters are counted, not bytes: one odd character at the end is ignored whatever its length.
    const auto foreign =
        std::find_if(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) > 127; });
    const auto ascii = static_cast<std::size_t>(foreign - text.begin());
    if (ascii < text.size()) {
        const bool isOneCharacter = std::all_of(foreign + 1, text.end(), [](char c) { return (c & 0xC0) == 0x80; });
        if (ascii % 2 != 0 || !isOneCharacter) return std::nullopt;
    }
    return text.substr(0, ascii - ascii % 2);
}

/// The characters that spell a key of 32 bytes; nothing if the text has too many or too few.
std::optional<std::string_view> digitsOfKey(std::string_view text) {
    constexpr std::size_t digits = 2 * publicKeyBytes;
    static_assert(publicKeyBytes == secretKeyBytes);
    if (text.size() == digits) return text;
    // Of another size, it can still be 64 digits and an odd character, of at most 4 bytes.
    if (text.size() > digits + 4) return std::nullopt;
    const auto pairs = pairsOf(text);
    return pairs && pairs->size() == digits ? pairs : std::nullopt;
}

/// One byte for each pair of characters; false at the first pair that is none.
bool decodeHex(std::string_view text, std::span<std::uint8_t> out) {
    for (std::size_t i = 0; i < out.size(); ++i) {
        const int high = digitValues[static_cast<std::uint8_t>(text[2 * i])];
        const int low = digitValues[static_cast<std::uint8_t>(text[2 * i + 1])];
        if (high < 0 || low < 0) return false;
        out[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return true;
}

}  // namespace

SharedKey::SharedKey(const PublicKey& publicKey, const SecretKey& secretKey) {
    if (crypto_box_beforenm(bytes.writable().data(), publicKey.data(), secretKey.view().data()) != 0)
        throw NaclError(NaclErrorCode::internalError);
}

void SharedKey::box(ByteView message, const Nonce& nonce, std::span<std::uint8_t> sealed) const {
    if (sealed.size() != message.size() + authenticatorBytes ||
        crypto_box_easy_afternm(sealed.data(), message.data(), message.size(), nonce.data(), bytes.view().data()) != 0)
        throw NaclError(NaclErrorCode::internalError);
}

Bytes SharedKey::open(ByteView sealed, const Nonce& nonce) const {
    if (sealed.size() < authenticatorBytes) throw NaclError(NaclErrorCode::internalError);
    Bytes message(sealed.size() - authenticatorBytes);
    if (crypto_box_open_easy_afternm(message.data(), sealed.data(), sealed.size(), nonce.data(), bytes.view().data()) !=
        0)
        throw NaclError(NaclErrorCode::internalError);
    return message;
}

Bytes box(ByteView message, const Nonce& nonce, const PublicKey& recipientPublicKey, const SecretKey& senderSecretKey) {
    Bytes sealed(message.size() + authenticatorBytes);
    SharedKey(recipientPublicKey, senderSecretKey).box(message, nonce, sealed);
    return sealed;
}

Bytes open(ByteView sealed, const Nonce& nonce, const PublicKey& senderPublicKey, const SecretKey& recipientSecretKey) {
    return SharedKey(senderPublicKey, recipientSecretKey).open(sealed, nonce);
}

KeyPair keyPair() {
    KeyPair pair;
    randomBytes(pair.secretKey.writable());
    pair.publicKey = publicKey(pair.secretKey);
    return pair;
}

PublicKey publicKey(const SecretKey& secretKey) {
    PublicKey key;
    crypto_scalarmult_base(key.data(), secretKey.view().data());
    return key;
}

PublicKey publicKeyFromBytes(ByteView bytes) {
    PublicKey key;
    if (bytes.size() != key.size()) throw NaclError(NaclErrorCode::badPublicKeySize);
    std::copy(bytes.begin(), bytes.end(), key.begin());
    return key;
}

Nonce nonceFromBytes(ByteView bytes) {
    Nonce nonce;
    if (bytes.size() != nonce.size()) throw NaclError(NaclErrorCode::badNonceSize);
    std::copy(bytes.begin(), bytes.end(), nonce.begin());
    return nonce;
}

Nonce randomNonce() {
    Nonce nonce;
    randomBytes(nonce);
    return nonce;
}

void randomBytes(std::span<std::uint8_t> buffer) {
    // The kernel is asked directly, since libsodium answers its failure by abort() without a word.
    while (!buffer.empty()) {
        const ssize_t got = getrandom(buffer.data(), buffer.size(), 0);
        if (got > 0) {
            buffer = buffer.subspan(static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            std::fputs("Generating random data failed, exiting", stderr);
            std::exit(1);
        }
    }
}

std::array<std::uint8_t, hashBytes> hash(ByteView bytes) {
    std::array<std::uint8_t, hashBytes> result;
    crypto_hash(result.data(), bytes.data(), bytes.size());
    return result;
}

std::string hex(ByteView bytes) {
    std::string text(bytes.size() * 2, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text[2 * i] = hexDigits[bytes[i] >> 4];
        text[2 * i + 1] = hexDigits[bytes[i] & 15];
    }
    return text;
}

std::optional<Bytes> fromHex(std::string_view text) {
    const auto pairs = pairsOf(text);
    if (!pairs) return std::nullopt;
    Bytes bytes(pairs->size() / 2);
    if (!decodeHex(*pairs, bytes)) return std::nullopt;
    return bytes;
}

std::optional<PublicKey> publicKeyFromHex(std::string_view text) {
    PublicKey key;
    const auto digits = digitsOfKey(text);
    return digits && decodeHex(*digits, key) ? std::optional(key) : std::nullopt;
}

std::optional<SecretKey> secretKeyFromHex(std::string_view text) {
    SecretKey key;
    const auto digits = digitsOfKey(text);
    return digits && decodeHex(*digits, key.writable()) ? std::optional(std::move(key)) : std::nullopt;
}

void wipe(std::span<std::uint8_t> bytes) { sodium_memzero(bytes.data(), bytes.size()); }

void wipe(std::string& text) {
    sodium_memzero(text.data(), text.size());
    text.clear();
}

}  // namespace Nacl
