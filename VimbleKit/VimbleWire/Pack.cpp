#include "VimbleWire/Pack.h"

#include "StateKit/Json.h"

#include <algorithm>

namespace {

template <std::size_t size>
std::array<std::uint8_t, size> arrayOf(std::span<const std::uint8_t, size> bytes) {
    std::array<std::uint8_t, size> result;
    std::copy(bytes.begin(), bytes.end(), result.begin());
    return result;
}

}  // namespace

EncryptedPack Pack::encrypted(const SecretKey& authorSecretKey) const {
    const Nonce used = nonce ? *nonce : Nacl::randomNonce();
    return {authorKey, targetKey, used, Nacl::box(plaintext, used, targetKey, authorSecretKey)};
}

EncryptedPack::EncryptedPack(const PublicKey& authorKey, const PublicKey& targetKey, const Nonce& nonce,
                             Bytes ciphertext)
    : authorKey(authorKey), targetKey(targetKey), nonce(nonce), ciphertext(std::move(ciphertext)) {}

std::optional<EncryptedPack> EncryptedPack::parse(ByteView frame) {
    const auto view = PackView::of(frame);
    if (!view) return std::nullopt;
    return EncryptedPack(view->authorKey(), view->targetKey(), view->nonce,
                         Bytes(view->ciphertext.begin(), view->ciphertext.end()));
}

Pack EncryptedPack::decrypted(const SecretKey& targetSecretKey) const {
    return {authorKey, targetKey, nonce, Nacl::open(ciphertext, nonce, authorKey, targetSecretKey)};
}

Bytes EncryptedPack::bytes() const {
    Bytes frame;
    frame.reserve(ciphertextOffset + ciphertext.size());
    frame.insert(frame.end(), authorKey.begin(), authorKey.end());
    frame.insert(frame.end(), targetKey.begin(), targetKey.end());
    frame.insert(frame.end(), nonce.begin(), nonce.end());
    frame.insert(frame.end(), ciphertext.begin(), ciphertext.end());
    return frame;
}

std::optional<PackView> PackView::of(ByteView frame) {
    if (frame.size() <= EncryptedPack::ciphertextOffset) return std::nullopt;
    return PackView{frame.subspan<EncryptedPack::authorOffset, Nacl::publicKeyBytes>(),
                    frame.subspan<EncryptedPack::targetOffset, Nacl::publicKeyBytes>(),
                    arrayOf(frame.subspan<EncryptedPack::nonceOffset, Nacl::nonceBytes>()),
                    frame.subspan(EncryptedPack::ciphertextOffset)};
}

PublicKey PackView::authorKey() const { return arrayOf(author); }
PublicKey PackView::targetKey() const { return arrayOf(target); }

Bytes sealedFrame(const PublicKey& author, const PublicKey& target, const Nonce& nonce, ByteView plaintext,
                  const Nacl::SharedKey& sharedKey) {
    Bytes frame(EncryptedPack::ciphertextOffset + Nacl::authenticatorBytes + plaintext.size());
    std::copy(author.begin(), author.end(), frame.begin() + EncryptedPack::authorOffset);
    std::copy(target.begin(), target.end(), frame.begin() + EncryptedPack::targetOffset);
    std::copy(nonce.begin(), nonce.end(), frame.begin() + EncryptedPack::nonceOffset);
    sharedKey.box(plaintext, nonce, std::span(frame).subspan(EncryptedPack::ciphertextOffset));
    return frame;
}

Bytes PackPlaintext::encoded() const {
    const JsonText json = Json::encode(*this);
    return Bytes(json.bytes().begin(), json.bytes().end());
}

std::optional<PackPlaintext> PackPlaintext::decoded(ByteView json) {
    try {
        return Json::decode<PackPlaintext>(json);
    } catch (const JsonError&) {
        return std::nullopt;
    }
}
