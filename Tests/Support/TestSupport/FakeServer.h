#pragma once

#include "TestSupport/FakeTransport.h"
#include "TweetNacl/Nacl.h"
#include "VimbleKit/Keys.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The keys of a made-up person. The same number, from 1 to 255, gives the same keys at every run.
inline Keys keysOf(std::uint8_t number) { return Keys(Nacl::hex(Bytes(SecretKey::size, number))); }

/// The text form of that person's public key.
inline std::string keyTextOf(std::uint8_t number) { return keysOf(number).publicKeyText(); }

/// The relay's side of the protocol over one `FakeLink`. For tests that link VimbleKit.
///
/// It has a key pair of its own and real cryptography. The test decides what it says, and when.
class FakeServer {
public:
    /// @param client  the public key of the user at the other end
    FakeServer(std::shared_ptr<FakeLink> link, const PublicKey& client, std::uint8_t number = 200)
        : link(std::move(link)), client(client), keys(keysOf(number)) {}

    bool greet() { return link->deliver(ByteView(Greeting::encoded(keys.publicKey))); }

    /// Completes the handshake, greets, and sends a list.
    void accept(const std::vector<MetaPerson>& people) {
        link->ready();
        greet();
        sendList(people);
    }

    bool sendList(const std::vector<MetaPerson>& people) { return send(ServerMessage::encodedList(people)); }
    bool sendError(std::string_view text) {
        return send(ServerMessage::encodedText(ServerMessage::commandError, text));
    }
    bool sendResponse(std::string_view text) {
        return send(ServerMessage::encodedText(ServerMessage::commandResponse, text));
    }

    /// A server message of any form.
    bool send(std::string_view plaintext) { return send(Bytes(plaintext.begin(), plaintext.end())); }
    bool send(Bytes plaintext) { return sendFrom(keys, std::move(plaintext)); }

    /// Passes on what another person has written to the user.
    bool relay(const Keys& author, const PackPlaintext& record) { return sendFrom(author, record.encoded()); }
    bool sendFrom(const Keys& author, Bytes plaintext) {
        return link->deliver(ByteView(packFrom(author, std::move(plaintext)).bytes()));
    }
    EncryptedPack packFrom(const Keys& author, Bytes plaintext) const {
        return Pack{author.publicKey, client, std::nullopt, std::move(plaintext)}.encrypted(author.secretKey);
    }

    /// Closes the link as a server does when it refuses a key.
    bool refuse() { return link->close(CloseCode::policyViolation); }

    /// The packs that the client has sent since the last call, still sealed.
    std::vector<EncryptedPack> takePacks() {
        std::vector<EncryptedPack> packs;
        for (const Bytes& frame : link->takeSent())
            if (auto pack = EncryptedPack::parse(frame)) packs.push_back(std::move(*pack));
        return packs;
    }

    /// The commands to the server that the client has sent since the last call. Drops its other packs.
    std::vector<std::string> takeCommands() {
        std::vector<std::string> commands;
        for (const EncryptedPack& pack : takePacks()) {
            if (pack.targetKey != keys.publicKey) continue;
            const Bytes plaintext = pack.decrypted(keys.secretKey).plaintext;
            commands.emplace_back(plaintext.begin(), plaintext.end());
        }
        return commands;
    }

    const std::shared_ptr<FakeLink> link;
    const PublicKey client;
    const Keys keys;
};

/// The record in a pack to that reader; nothing if the pack can't be opened, or holds no record.
inline std::optional<PackPlaintext> recordIn(const EncryptedPack& pack, const Keys& reader) {
    try {
        return PackPlaintext::decoded(pack.decrypted(reader.secretKey).plaintext);
    } catch (const NaclError&) {
        return std::nullopt;
    }
}
