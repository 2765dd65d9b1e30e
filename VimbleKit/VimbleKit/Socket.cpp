#include "VimbleKit/Socket.h"

#include "Base/Check.h"
#include "StateKit/Log.h"
#include "StateKit/Printed.h"
#include "Text/Text.h"
#include "Text/Url.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::size_t shownCharacters = 64;

/// The address of a server's relay: the endpoint with one more path component. An endpoint that is no
/// URL is passed on, and the transport refuses it.
std::string relayUrl(const std::string& endpoint) {
    const auto url = Url::parse(endpoint);
    return url ? url->appending("relay").text() : endpoint;
}

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string result;
    std::size_t size = 0;
    for (const auto part : parts) size += part.size();
    result.reserve(size);
    for (const auto part : parts) result += part;
    return result;
}

/// Draws nonces by the hundred, since asking the kernel for one costs half as much as sealing a pack.
class NonceSource {
public:
    explicit NonceSource(std::size_t expected) : remaining(expected) {}

    const Nonce& next() {
        if (used == drawn) {
            drawn = std::clamp<std::size_t>(remaining, 1, nonces.size());
            Nacl::randomBytes({nonces.front().data(), drawn * sizeof(Nonce)});
            remaining -= std::min(remaining, drawn);
            used = 0;
        }
        return nonces[used++];
    }

private:
    std::array<Nonce, 128> nonces;
    std::size_t used = 0;
    std::size_t drawn = 0;
    std::size_t remaining;
};

}  // namespace

Socket::Socket(Transport& transport, const Host& host, std::string endpoint, std::shared_ptr<const Keys> keys)
    : _endpoint(std::move(endpoint)), keys(std::move(keys)), websocket(transport, host, relayUrl(_endpoint)) {
    websocket.setDelegate(this);
}

void Socket::connect() {
    // Forget the earlier connection here: if it was given up after its greeting, nothing reports its end once
    // it is replaced. The new connection begins with a greeting, and so a key, of its own.
    serverKey.reset();
    setServerPeople({});
    _isConnecting = true;
    websocket.connect();
}

void Socket::disconnect() {
    if (!websocket.isConnected() && !_isConnecting) return;
    _isConnecting = false;
    websocket.close(CloseCode::normalClosure);
}

// ---- receiving

void Socket::websocketDidReceive(Websocket&, ByteView frame) {
    DebugLines::print([&] { return "Got websocket data: " + Nacl::hex(frame); });
    if (!serverKey) {
        receiveGreeting(frame);
        return;
    }
    const auto pack = opened(frame);
    if (!pack) return;

    // The delegate may replace this socket in any of its callbacks.
    const Weak<Socket> self(this);
    const bool isFromServer = pack->authorKey == *serverKey;
    if (isFromServer && !_isConnected) {
        _isConnecting = false;
        _isConnected = true;
        if (auto* told = delegate.get()) told->socketDidConnect(*this);
        if (!self) return;
    }
    if (isFromServer)
        receiveServerMessage(pack->plaintext);
    else if (auto* told = delegate.get())
        told->socketReceivedPack(*this, *pack);
}

void Socket::receiveGreeting(ByteView frame) {
    serverKey = Greeting::decoded(frame);
    if (!serverKey) return;
    DebugLines::print([&] { return "Got Websocket server key: " + Nacl::hex(*serverKey); });
    try {
        sendCommand(ServerMessage::list);
    } catch (const NaclError&) {
        // Nothing can be sealed for this server's key. The server hears nothing from us, and will close.
    }
}

std::optional<Pack> Socket::opened(ByteView frame) {
    const auto view = PackView::of(frame);
    if (!view) return std::nullopt;
    Pack pack{view->authorKey(), view->targetKey(), view->nonce, {}};
    try {
        auto shared = sharedKeys.find(pack.authorKey);
        const bool isKnown = shared != nullptr;
        if (!isKnown) shared = std::make_shared<const Nacl::SharedKey>(pack.authorKey, keys->secretKey);
        pack.plaintext = shared->open(view->ciphertext, view->nonce);
        // Keep the key only now that the frame has opened, which proves that somebody has it: made-up keys
        // would fill the cache.
        if (!isKnown) sharedKeys.keep(pack.authorKey, std::move(shared));
    } catch (const NaclError&) {
        return std::nullopt;
    }
    return pack;
}

void Socket::receiveServerMessage(ByteView plaintext) {
    const auto message = ServerMessage::decoded(plaintext);
    if (!message) return;
    const Weak<Socket> self(this);

    if (message->kind == ServerMessage::list) {
        auto people = ServerMessage::decodedList(message->body);
        if (!people) return;
        setServerPeople(std::move(*people));
        logReceived([&] { return "list of " + std::to_string(_serverPeople.size()) + " people"; });
        if (!self) return;
        // Pass a copy: the delegate may end the link in the middle, which empties the list.
        const std::vector<MetaPerson> list = _serverPeople;
        if (auto* told = delegate.get()) told->socketReceivedPeople(*this, list);
    } else if (message->kind == ServerMessage::commandError) {
        const auto record = PackPlaintext::decoded(message->body);
        const std::string text = record && record->text ? *record->text : "Unknown Error";
        logReceived([&] { return "command error: " + text; });
        if (!self) return;
        if (auto* told = delegate.get()) told->socketCommandFailed(*this, text);
    } else if (message->kind == ServerMessage::commandResponse) {
        const auto record = PackPlaintext::decoded(message->body);
        std::string text;
        if (record && record->text) {
            text = *record->text;
        } else {
            // The seal proves that our server wrote the answer, and it is taken for granted that it writes UTF-8.
            check(Text::isUtf8(textOf(message->body)), "The server's answer to a command is not UTF-8");
            text = "Could not understand response: " + std::string(textOf(message->body));
        }
        logReceived([&] { return "command response: " + text; });
        if (!self) return;
        if (auto* told = delegate.get()) told->socketCommandResponded(*this, text);
    } else {
        DebugLines::print([&] { return "Got unknown server message of kind " + message->kind; });
    }
}

void Socket::setServerPeople(std::vector<MetaPerson> people) {
    _serverPeople = std::move(people);
    recipients.clear();
    printedPeople.clear();
}

void Socket::websocketDidDisconnect(Websocket&, const std::optional<TransportError>& error,
                                    std::optional<CloseCode> closeCode) {
    const Weak<Socket> self(this);
    _isConnecting = false;

    std::optional<SocketError> failure;
    if (error && closeCode == CloseCode::policyViolation)
        failure = SocketError::authorizationFailure(error->text);
    else if (error || closeCode)
        failure = SocketError::networkFailure(error);

    if (failure && failure->code == SocketError::Code::networkFailure && !_isConnected) {
        if (auto* told = delegate.get()) told->socketConnectFailed(*this, failure->localizedDescription());
    } else if (failure && failure->code == SocketError::Code::authorizationFailure) {
        if (auto* told = delegate.get()) told->socketAuthorizationFailed(*this, failure->explanation);
    }
    if (!self) return;
    serverKey.reset();
    setServerPeople({});
    if (std::exchange(_isConnected, false)) {
        if (auto* told = delegate.get()) told->socketDisconnected(*this, failure);
    }
}

// ---- sending

SharedKeyCache::Entry Socket::sharedKey(const PublicKey& other) {
    auto shared = sharedKeys.find(other);
    if (!shared) {
        shared = std::make_shared<const Nacl::SharedKey>(other, keys->secretKey);
        sharedKeys.keep(other, shared);
    }
    return shared;
}

void Socket::seal(const PublicKey& target, const Nonce& nonce, ByteView payload, const SharedKeyCache::Entry& shared) {
    websocket.send(sealedFrame(keys->publicKey, target, nonce, payload, *shared));
}

/// Sends the same payload to everybody on the list, each time under a new nonce.
void Socket::fanOut(const PackPlaintext& record) {
    Bytes payload;
    try {
        payload = record.encoded();
    } catch (const std::exception&) {
        return;  // a text that has no JSON form goes to nobody
    }
    if (recipients.size() != _serverPeople.size()) {
        recipients.clear();
        for (const MetaPerson& person : _serverPeople) {
            const auto key = Nacl::publicKeyFromHex(person.publicKey);
            const bool isHex = key || Nacl::fromHex(person.publicKey);
            recipients.push_back(isHex ? std::optional(Recipient{key, nullptr}) : std::nullopt);
        }
    }
    NonceSource nonces(recipients.size());
    for (auto& recipient : recipients) {
        if (!recipient) continue;
        // An error only now: those before it on the list get the message.
        if (!recipient->key) throw NaclError(NaclErrorCode::badPublicKeySize);
        if (!recipient->shared) recipient->shared = sharedKey(*recipient->key);
        seal(*recipient->key, nonces.next(), payload, recipient->shared);
    }
}

void Socket::sendChat(const std::string& text, const std::string& name, const std::string& emoji,
                      const std::string& kind) {
    fanOut({kind, name, emoji, text});
    logSent([&] {
        if (printedPeople.empty()) printedPeople = printed(_serverPeople);
        return joined({"chat ×", printedPeople, " ", name, ": ", Text::prefix(text, shownCharacters)});
    });
}

void Socket::sendPong(const std::string& name, const std::string& emoji) {
    fanOut({std::nullopt, name, emoji, std::nullopt});
    logSent([&] {
        if (printedPeople.empty()) printedPeople = printed(_serverPeople);
        return joined({"pong ×", printedPeople, " ", name, " ", emoji});
    });
}

void Socket::sendDirect(const std::string& text, const std::string& targetKey, const std::string& name,
                        const std::string& emoji) {
    Bytes payload;
    try {
        payload = PackPlaintext{std::nullopt, name, emoji, text}.encoded();
    } catch (const std::exception&) {
        return;
    }
    const auto bytes = Nacl::fromHex(targetKey);
    if (!bytes) throw SocketError::badArgument();
    const PublicKey target = Nacl::publicKeyFromBytes(*bytes);
    seal(target, Nacl::randomNonce(), payload, sharedKey(target));
    logSent([&] { return joined({"dm → ", Text::prefix(targetKey, 8), ": ", Text::prefix(text, shownCharacters)}); });
}

void Socket::sendCommand(std::string_view command) {
    if (!serverKey) throw SocketError::notConnected();
    if (!Text::isUtf8(command)) throw SocketError::badArgument();
    // Do not keep the key: a server may have a new one for each link, which is never used again.
    const auto shared = sharedKeys.find(*serverKey);
    seal(*serverKey, Nacl::randomNonce(), bytesOf(command),
         shared ? shared : std::make_shared<const Nacl::SharedKey>(*serverKey, keys->secretKey));
    logSent([&] { return joined({"scmd: ", command}); });
}

template <class Build>
void Socket::logSent(Build&& build) {
    auto* told = delegate.get();
    if (told && told->socketLinesAreRead()) told->socketSent(*this, build());
}

template <class Build>
void Socket::logReceived(Build&& build) {
    auto* told = delegate.get();
    if (told && told->socketLinesAreRead()) told->socketReceived(*this, build());
}
