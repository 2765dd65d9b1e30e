#include "TweetNacl/SealedBox.h"

#include <limits>
#include <sodium.h>
#include <utility>

static_assert(Nacl::saltBytes == crypto_pwhash_SALTBYTES);
static_assert(SecretKey::size == crypto_secretbox_KEYBYTES && Nacl::nonceBytes == crypto_secretbox_NONCEBYTES);
static_assert(Nacl::authenticatorBytes == crypto_secretbox_MACBYTES);

Passphrase::Passphrase(std::string&& text) : bytes(text.begin(), text.end()) { Nacl::wipe(text); }

Passphrase& Passphrase::operator=(Passphrase&& other) noexcept {
    if (this != &other) {
        Nacl::wipe(bytes);
        bytes = std::move(other.bytes);
    }
    return *this;
}

Passphrase::~Passphrase() { Nacl::wipe(bytes); }

namespace Nacl {

SecretKey keyFromPassphrase(const Passphrase& passphrase, const Salt& salt, const PassphraseCost& cost) {
    SecretKey key;
    const ByteView text = passphrase.view();
    const auto* characters = text.empty() ? "" : reinterpret_cast<const char*>(text.data());  // null is not allowed
    if (cost.memoryBytes > std::numeric_limits<std::size_t>::max() ||
        crypto_pwhash(key.writable().data(), SecretKey::size, characters, text.size(), salt.data(), cost.passes,
                      static_cast<std::size_t>(cost.memoryBytes), crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw NaclError(NaclErrorCode::internalError);
    return key;
}

Bytes secretBox(ByteView message, const Nonce& nonce, const SecretKey& secret) {
    Bytes sealed(message.size() + authenticatorBytes);
    if (crypto_secretbox_easy(sealed.data(), message.data(), message.size(), nonce.data(), secret.view().data()) != 0)
        throw NaclError(NaclErrorCode::internalError);
    return sealed;
}

Bytes openSecretBox(ByteView sealed, const Nonce& nonce, const SecretKey& secret) {
    if (sealed.size() < authenticatorBytes) throw NaclError(NaclErrorCode::internalError);
    Bytes message(sealed.size() - authenticatorBytes);
    if (crypto_secretbox_open_easy(message.data(), sealed.data(), sealed.size(), nonce.data(), secret.view().data()) !=
        0)
        throw NaclError(NaclErrorCode::internalError);
    return message;
}

}  // namespace Nacl
