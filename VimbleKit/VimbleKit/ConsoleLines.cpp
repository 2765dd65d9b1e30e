#include "VimbleKit/ConsoleLines.h"

#include "StateKit/Printed.h"

#include <variant>

namespace {

using Line = std::optional<std::string>;

struct EventLine {
    Line operator()(const Events::Add& e) const { return e.added.displayName() + " was added to the conversation"; }
    Line operator()(const Events::Remove& e) const {
        return e.removed.displayName() + " was removed from the conversation";
    }
    Line operator()(const Events::Join& e) const { return e.user.displayName() + " is online"; }
    Line operator()(const Events::Leave& e) const { return e.user.displayName() + " went away"; }
    Line operator()(const Events::NameSet& e) const { return e.from + " changed name to " + e.user.displayName(); }
    Line operator()(const Events::EmojiSet& e) const {
        return e.user.displayName() + " changed emoji to " + e.user.displayEmoji();
    }
    Line operator()(const Events::Message& e) const {
        return "Message from " + e.user.displayName() + ": " + e.message;
    }
    Line operator()(const Events::Roster& e) const { return "Roster update: " + printed(e.users); }
    Line operator()(const Events::ConnectFailed& e) const { return "Connection failed: " + e.exp; }
    Line operator()(const Events::AuthorizationFailed& e) const { return "Authorization failed: " + e.exp; }
    Line operator()(const Events::CommandFailed&) const { return std::nullopt; }
    Line operator()(const Events::CommandResponded&) const { return std::nullopt; }
    Line operator()(const Events::Error& e) const { return "Something went wrong: " + e.error; }
    Line operator()(const Events::Connected&) const { return "Connected to the server"; }
    Line operator()(const Events::Disconnected&) const { return "You disconnected from the server"; }
};

}  // namespace

std::string ConsoleLines::banner(const std::optional<std::string>& shortVersion) {
    return "Vimble " + shortVersion.value_or("0.0");
}

std::string ConsoleLines::line(const NetworkIO& traffic) {
    switch (traffic.direction) {
        case NetworkIO::Direction::inbound: return "← " + traffic.description;
        case NetworkIO::Direction::outbound: return "→ " + traffic.description;
    }
    return {};
}

std::string ConsoleLines::line(Online online) {
    switch (online) {
        case Online::startup: return "Session Starting Up";
        case Online::online: return "Session Online";
        case Online::offline: return "Session Offline";
    }
    return {};
}

std::optional<std::string> ConsoleLines::line(const Event& event) { return std::visit(EventLine(), event); }
