#include "Simulation/ExpectedHistory.h"

#include <algorithm>

namespace {

constexpr Seconds quietUntilSave = 2;
constexpr Seconds longestUnwritten = 30;

std::optional<std::string> difference(const std::string& where, const ExpectedHistory::Texts& expected,
                                      const SharedList<Message>& messages) {
    for (std::size_t i = 0; i < std::max(expected.size(), messages.size()); ++i) {
        const auto show = [&](std::string text) { return text.size() > 40 ? text.substr(0, 40) + "…" : text; };
        const std::string wanted = i < expected.size() ? show(expected[i].text) : "nothing";
        const std::string found = i < messages.size() ? show(messages[i].text) : "nothing";
        if (i < expected.size() && i < messages.size() && expected[i].text == messages[i].text &&
            expected[i].author == messages[i].author)
            continue;
        return where + " has at place " + std::to_string(i) + " \"" + found + "\" instead of \"" + wanted + "\"";
    }
    return std::nullopt;
}

/// The texts that a state already holds. The others are being handed to the client at this moment.
ExpectedHistory::Texts beginning(const ExpectedHistory::Texts& texts, const SharedList<Message>& messages) {
    return {texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(std::min(texts.size(), messages.size()))};
}

}  // namespace

void ExpectedHistory::write(const State& state) {
    History& kept = disk[server];
    kept.wishesLink = state.connection != Connection::setup;
    kept.room = beginning(present.room, state.room.messages);
    kept.conversations.clear();
    for (const auto& [key, texts] : present.conversations)
        if (const Chat* chat = state.conversations.find(key))
            kept.conversations[key] = beginning(texts, chat->messages);
    serverOnDisk = server;
}

void ExpectedHistory::settle(Date now) {
    if (!firstUnwritten || lastChange + quietUntilSave > now) return;
    write(lastState);
    firstUnwritten.reset();
}

void ExpectedHistory::changed(const State& state, Date now) {
    settle(now);
    lastState = state;
    lastChange = now;
    if (firstUnwritten && *firstUnwritten < now - longestUnwritten) {
        write(state);
        firstUnwritten.reset();
    } else if (!firstUnwritten) {
        firstUnwritten = now;
    }
    present.wishesLink = state.connection != Connection::setup;
}

void ExpectedHistory::saved(const State& state, Date now) {
    settle(now);
    write(state);
}

void ExpectedHistory::serverChanged(const std::string& newServer) {
    server = newServer;
    present = disk[server];
}

void ExpectedHistory::killed(Date now) {
    settle(now);
    firstUnwritten.reset();
    server = serverOnDisk;
    present = disk[server];
}

std::optional<std::string> ExpectedHistory::difference(const State& state) const {
    if (const auto found = ::difference("the room", present.room, state.room.messages)) return found;
    for (const auto& [key, chat] : state.conversations)
        if (!present.conversations.contains(key)) return "there is a conversation with " + key.substr(0, 6);
    for (const auto& [key, texts] : present.conversations) {
        static const Chat none;
        const Chat* chat = state.conversations.find(key);
        if (const auto found =
                ::difference("the conversation with " + key.substr(0, 6), texts, chat ? chat->messages : none.messages))
            return found;
    }
    return std::nullopt;
}
