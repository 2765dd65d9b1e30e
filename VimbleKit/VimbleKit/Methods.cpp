#include "StateKit/Log.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/KitError.h"
#include "VimbleKit/Text.h"

#include <cstdint>
#include <utility>

// The operations of `Kit` that the application calls; the session itself is in Kit.cpp.

const std::string Kit::roomKey;

namespace {

const std::string roomKind = "room";

/// The first word of a line and what stands behind it, without the blanks in front of either.
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

}  // namespace

void Kit::connect() {
    if (!_socket) return;
    if (state().connection == Connection::setup) setConnection(Connection::offline);
    if (_internetStatus != Internets::Status::online || !_socket || _socket->isConnected() || _socket->isConnecting())
        return;
    cancelReconnect();
    _reconnectAttempt = 0;
    _socket->connect();
}

void Kit::disconnect() {
    if (state().connection == Connection::setup) return;
    cancelReconnect();
    _reconnectAttempt = 0;
    // Before the socket closes, so that the report of the end finds it and arms no retry.
    setConnection(Connection::setup);
    if (_socket) _socket->disconnect();
}

void Kit::setEndpoint(const Endpoint& endpoint) {
    if (state().endpoint == endpoint) return;
    try {
        save();
    } catch (const std::exception& error) {
        // What could not be written now is lost with the change of servers; the user wants the other one.
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
    // The old socket may be in the middle of telling this session something; it goes at the next turn,
    // by when its close frame is on its way too.
    if (_socket) _environment.loop.post([old = std::shared_ptr<Socket>(std::move(_socket))] {});
    _socket = makeSocket(endpoint);
    _core->commit([&](State& state) { state = std::move(loaded); });
}

void Kit::setName(const std::string& name) {
    if (!canSend()) return;
    _socket->sendPong(name, state().me()->emoji);
    _core->commit([&](State& state) {
        state.people.updateExisting(state.publicKey, [&](Person& me) { me.name = name; });
    });
}

void Kit::setEmoji(const std::string& emoji) {
    if (!canSend()) return;
    _socket->sendPong(state().me()->name, emoji);
    _core->commit([&](State& state) {
        state.people.updateExisting(state.publicKey, [&](Person& me) { me.emoji = emoji; });
    });
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
    const Person me = *state().me();
    if (target == roomKey)
        _socket->sendChat(text, me.name, me.emoji, roomKind);
    else
        _socket->sendDirect(text, target, me.name, me.emoji);
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
