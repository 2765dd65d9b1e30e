#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/Person.h"

#include <string>
#include <variant>
#include <vector>

/// Something that happened, as the engine tells its observers. `when` is the local time at which the
/// engine handled the cause; an observer finds the state already changed.
namespace Events {

/// Somebody is listed who was not known before. The list does not say who acted, so `admin` is the
/// person too.
struct Add {
    Person admin;
    Person added;
    Date when;
};
/// Somebody known is no longer listed; likewise.
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
/// A text came, to the room or to the user alone: the state says which.
struct Message {
    Person user;
    std::string message;
    Date when;
};
/// After every list of the server: everybody, in roster order.
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
/// For observers to handle; the engine has no sender of it.
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
