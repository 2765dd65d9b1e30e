#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/NetworkIO.h"

#include <optional>
#include <string>
#include <string_view>

/// What the terminal client writes with `--json`: one object a line, as plain functions.
///
/// Every object has "type"; docs/terminal.md lists them. Keys stand in the order in which they are
/// listed there, times are seconds since 1970 (UTC). Text is exact: what would steer a terminal stands
/// as "\u" escapes, which every reader turns back. Bytes that are not UTF-8 become escapes in words.
namespace JsonLines {

/// Where a text went, or came from.
enum class Place { room, direct };

/// @param version  "0.0" where the bundle has none
std::string banner(const std::optional<std::string>& version, std::string_view publicKey, std::string_view server);
std::string line(const NetworkIO& traffic);
std::string line(Online online);
/// @param place  of a message; not looked at for other events
std::string line(const Event& event, Place place);

/// A text of the user's own was handed to the network. @param to  the reader's key; empty for the room
std::string sent(std::string_view to, std::string_view text, Date when);
std::string sentCommand(std::string_view command, Date when);

/// A line that somebody typed can't be said.
/// @param typed  empty where the line itself could not be read
std::string notSent(std::string_view typed, std::string_view reason);

}  // namespace JsonLines
