#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/NetworkIO.h"

#include <optional>
#include <string>
#include <string_view>

/// The lines that the terminal client writes with `--json`, one object a line, as plain functions.
///
/// Every object has "type"; docs/terminal.md lists the types, and their keys in the order in which they are
/// written. Times are seconds since 1970 (UTC). Text is exact: characters that would control a terminal are
/// written as JSON's "\u" escapes, which every parser turns back. Bytes that are not UTF-8 become text such as "\xff".
namespace JsonLines {

/// Whether a text belongs to the room or to a direct conversation.
enum class Place { room, direct };

/// @param version  of the bundle; "0.0" is written if it has none
std::string banner(const std::optional<std::string>& version, std::string_view publicKey, std::string_view server);
std::string line(const NetworkIO& traffic);
std::string line(Online online);
/// @param place  the place of a message; ignored for other events
std::string line(const Event& event, Place place);

/// Says that a text of the user was sent. @param to  the reader's key; empty for the room
std::string sent(std::string_view to, std::string_view text, Date when);
std::string sentCommand(std::string_view command, Date when);

/// Says that a line which the user typed can't be sent.
/// @param typed  the line; empty if it could not be read
std::string notSent(std::string_view typed, std::string_view reason);

}  // namespace JsonLines
