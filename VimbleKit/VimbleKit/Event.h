#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/Person.h"

#include <string>
#include <variant>
#include <vector>

/// Something that happened, as the engine tells its observers. `when` is the local time at which the
/// engine handled the cause; an observer finds the state already changed.
namespace Events {

/// Somebody new is on the server's list. The list does not say who added them, so `admin` is the same
/// person as `added`.
struct Add {
    Person admin;
    Person added;
    Date when;
};
/// Somebody is no longer on the server's list. `admin` is the same person as `removed`, as in `Add`.
struct Remove {
    Person admin;
    Person removed;
    Date when;
};
struct Join {
    Person user;
    Date when;
};
struct Leave {
    Person user;
    Date when;
};
/// `user` has the new name; `from` is the old display name, which may be the anonymous form.
struct NameSet {
    Person user;
    std::string from;
    Date when;
};
/// `user` has the new emoji; `from` is the old display emoji.
struct EmojiSet {
    Person user;
    std::string from;
    Date when;
};
/// A text arrived, for the room or for the user alone. Only the state tells which.
struct Message {
    Person user;
    std::string message;
    Date when;
};
/// Sent after every list of the server; `users` is everybody, in roster order.
struct Roster {
    std::vector<Person> users;
};
/// The link closed before it was authenticated.
struct ConnectFailed {
    std::string exp;
};
/// The server refused the user's key.
struct AuthorizationFailed {
    std::string exp;
};
struct CommandFailed {
    std::string exp;
};
struct CommandResponded {
    std::string exp;
};
/// Observers must handle this event, but the engine itself never sends it.
struct Error {
    std::string error;  // the error's text
};
struct Connected {};
struct Disconnected {};

}  // namespace Events

using Event = std::variant<Events::Add, Events::Remove, Events::Join, Events::Leave, Events::NameSet, Events::EmojiSet,
                           Events::Message, Events::Roster, Events::ConnectFailed, Events::AuthorizationFailed,
                           Events::CommandFailed, Events::CommandResponded, Events::Error, Events::Connected,
                           Events::Disconnected>;
