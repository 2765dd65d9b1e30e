#include "StateKit/Log.h"
#include "Text/Text.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/KitError.h"

#include <cstdint>
#include <utility>

// The operations of `Kit` that the application calls; the session itself is in Kit.cpp.

const std::string Kit::roomKey;

namespace {

const std::string roomKind = "room";

/// The first word of a line and the rest of the line, both without leading blanks.
std::pair<std::string_view, std::string_view> splitAtBlank(std::string_view text) {
    const auto withoutLeadingBlanks = [](std::string_view part) {
        const auto first = part.find_first_not_of(' ');
        return first == std::string_view::npos ? std::string_view() : part.substr(first);
    };
    const std::string_view line = withoutLeadingBlanks(text);
    const auto end = line.find(' ');
    if (end == std::string_view::npos) return {line, {}};
    return {line.substr(0, end), withoutLeadingBlanks(line.substr(end))};
}

/// Text that is not UTF-8 has no JSON form: it can't be sent, and in the state it would keep every later
/// state from being saved.
void requireUtf8(std::string_view text) {
    if (!Text::isUtf8(text)) throw SocketError::badArgument();
}

/// Remembers on which link something is sent. Sending calls observers, which may change the server or
/// destroy the session; then what was sent must not enter the other server's history.
class SentTo {
public:
    explicit SentTo(Kit& kit) : kit(&kit), socket(kit.socket()) {}
    bool isPresent() const { return kit && kit->socket() == socket; }

private:
    Weak<Kit> kit;
    const Socket* socket;  // only compared
};

}  // namespace

void Kit::connect() {
    if (!_socket) return;
    const Weak<Kit> self(this);
    if (state().connection == Connection::setup) setConnection(Connection::offline);
    if (self) attemptConnection(true);
}

void Kit::disconnect() {
    if (state().connection == Connection::setup) return;
    cancelReconnect();
    _reconnectAttempt = 0;
    // Set this before the socket closes, so that the report of its end finds `setup` and arms no retry.
    const Weak<Kit> self(this);
    setConnection(Connection::setup);
    // If an observer has connected again meanwhile, the link (or that of another server) must stay.
    if (self && state().connection == Connection::setup && _socket) _socket->disconnect();
}

void Kit::setEndpoint(const Endpoint& endpoint) {
    if (state().endpoint == endpoint) return;
    try {
        save();
    } catch (const std::exception& error) {
        // What was not written is lost with the change of servers. Change all the same: the user wants it.
        Log("zorvane.VimbleKit", "Kit").error(std::string("Failed to suspend state: ") + error.what());
    }
    if (_socket) {
        _socket->disconnect();
        _socket->setDelegate(nullptr);
    }
    cancelReconnect();
    _reconnectAttempt = 0;
    State loaded = State::load(_environment.folder, endpoint);
    loaded.publicKey = _keys->publicKeyText();
    // The old socket may be calling this session right now, so it is destroyed at the next turn; by then its
    // close frame is on its way too.
    if (_socket) _environment.loop.post([old = std::shared_ptr<Socket>(std::move(_socket))] {});
    _socket = makeSocket(endpoint);
    // The caller may be an observer of a pack, and the rest of that pack must not enter the new server's
    // history.
    _incoming = std::make_unique<Incoming>(_environment.loop, *_core, _subsEvents);
    _core->commit([&](State& state) { state = std::move(loaded); });
}

void Kit::setName(const std::string& name) {
    if (!canSend()) return;
    requireUtf8(name);
    const SentTo sent(*this);
    _socket->sendPong(name, state().me()->emoji);
    if (!sent.isPresent()) return;
    _core->commit(
        [&](State& state) { state.people.updateExisting(state.publicKey, [&](Person& me) { me.name = name; }); });
}

void Kit::setEmoji(const std::string& emoji) {
    if (!canSend()) return;
    requireUtf8(emoji);
    const SentTo sent(*this);
    _socket->sendPong(state().me()->name, emoji);
    if (!sent.isPresent()) return;
    _core->commit(
        [&](State& state) { state.people.updateExisting(state.publicKey, [&](Person& me) { me.emoji = emoji; }); });
}

void Kit::command(std::string_view text) {
    const auto [word, rest] = splitAtBlank(text);
    if (word.empty()) return;
    if (word == "name") {
        if (!rest.empty()) setName(std::string(rest));
    } else if (word == "emoji") {
        if (!rest.empty()) setEmoji(std::string(Text::prefix(rest, 1)));
    } else if (_socket && _socket->isConnected()) {
        _socket->sendCommand(text);
    }
}

void Kit::send(const std::string& text, const std::string& target) {
    if (!canSend()) return;
    requireUtf8(text);
    const SentTo sent(*this);
    const Person me = *state().me();
    if (target == roomKey)
        _socket->sendChat(text, me.name, me.emoji, roomKind);
    else
        _socket->sendDirect(text, target, me.name, me.emoji);
    if (!sent.isPresent()) return;
    _core->commit([&](State& state) {
        Message message{state.publicKey, text, _environment.loop.now()};
        if (target == roomKey)
            state.room.messages.push_back(std::move(message));
        else
            state.conversations.update(target, [&](Chat& chat) { chat.messages.push_back(std::move(message)); });
    });
}

void Kit::markRead(const std::string& key) {
    _core->commit([&](State& state) {
        state.conversations.updateExisting(
            key, [](Chat& chat) { chat.readCount = static_cast<std::int64_t>(chat.messages.size()); });
    });
}

void Kit::markRoomRead() {
    _core->commit([](State& state) { state.room.readCount = static_cast<std::int64_t>(state.room.messages.size()); });
}

void Kit::requireOnline() const {
    if (state().connection != Connection::online) throw KitError(KitError::Code::notConnected);
}
