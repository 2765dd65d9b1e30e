// Packs: a frame that is cut into its fields can be put together again, and only what was sealed is opened.

#include "FuzzSupport/FuzzInput.h"
#include "FuzzSupport/FuzzKeys.h"

#include "Base/Check.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <algorithm>

namespace {

struct People {
    Nacl::KeyPair author = fuzzKeyPair(1);
    Nacl::KeyPair reader = fuzzKeyPair(2);
    Nacl::SharedKey shared{reader.publicKey, author.secretKey};
};

const People& people() {
    static const People all;
    return all;
}

std::optional<Pack> opened(const EncryptedPack& pack) {
    try {
        return pack.decrypted(people().reader.secretKey);
    } catch (const NaclError&) {
        return std::nullopt;
    }
}

/// Cuts any bytes, as a frame from the network.
void cut(ByteView frame) {
    const auto pack = EncryptedPack::parse(frame);
    const auto view = PackView::of(frame);
    check(pack.has_value() == (frame.size() > EncryptedPack::ciphertextOffset),
          "a frame is a pack by its length alone");
    check(pack.has_value() == view.has_value(), "the two ways to cut a frame differ");
    if (!pack) return;
    check(std::ranges::equal(pack->bytes(), frame), "a frame comes back altered");
    check(pack->authorKey == view->authorKey() && pack->targetKey == view->targetKey() &&
              std::ranges::equal(pack->nonce, view->nonce) && std::ranges::equal(pack->ciphertext, view->ciphertext),
          "the two ways to cut a frame give different fields");
    // Most inputs were made without a secret key, and do not open. A pack must open as a whole or not at all.
    if (const auto open = opened(*pack))
        check(open->plaintext.size() + Nacl::authenticatorBytes == pack->ciphertext.size(),
              "a part of a pack was opened");
}

/// Seals any plaintext, and then alters the byte that the fuzzer chooses.
void seal(FuzzInput& input) {
    const std::size_t at = input.byte() << 8 | input.byte();
    const std::uint8_t damage = input.byte();
    const ByteView plaintext = input.rest();
    const Pack pack{people().author.publicKey, people().reader.publicKey, fuzzNonce(),
                    Bytes(plaintext.begin(), plaintext.end())};
    const EncryptedPack sealed = pack.encrypted(people().author.secretKey);
    Bytes frame = sealed.bytes();
    check(frame == sealedFrame(pack.authorKey, pack.targetKey, *pack.nonce, plaintext, people().shared),
          "the two ways to seal differ");
    const auto parsed = EncryptedPack::parse(frame);
    check(parsed && *parsed == sealed, "a sealed pack comes back altered");
    check(opened(*parsed) == pack, "what was sealed opens as something else");

    // The seal does not cover the target's key, so the reader does not notice a change of it.
    const std::size_t place = at % frame.size();
    const bool isTarget = place >= EncryptedPack::targetOffset && place < EncryptedPack::nonceOffset;
    // The highest bit of a public key is ignored: the other bits alone give its point on the curve.
    const std::uint8_t bits = place == EncryptedPack::targetOffset - 1 ? damage & 0x7F : damage;
    if (isTarget || bits == 0) return;
    frame[place] ^= bits;
    check(!opened(*EncryptedPack::parse(frame)), "an altered pack was opened");
}

/// Reads any plaintext, as if it had come out of a pack.
void look(ByteView plaintext) {
    if (const auto record = PackPlaintext::decoded(plaintext))
        check(PackPlaintext::decoded(record->encoded()) == record, "a record comes back altered");
    const auto message = ServerMessage::decoded(plaintext);
    if (!message) return;
    check(message->kind.size() + message->body.size() == plaintext.size() && !message->body.empty(),
          "a server message loses bytes");
    const auto list = ServerMessage::decodedList(message->body);
    if (!list) return;
    const Bytes again = ServerMessage::encodedList(*list);
    const auto back = ServerMessage::decoded(again);
    check(back && back->kind == ServerMessage::list && ServerMessage::decodedList(back->body) == list,
          "a list comes back altered");
}

void greet(ByteView frame) {
    if (const auto key = Greeting::decoded(frame))
        check(std::ranges::equal(Greeting::encoded(*key), frame), "a greeting comes back altered");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    switch (input.below(4)) {
        case 0: cut(input.rest()); break;
        case 1: seal(input); break;
        case 2: look(input.rest()); break;
        case 3: greet(input.rest()); break;
    }
    return 0;
}
