#pragma once

#include "VimbleKit/Connection.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/NetworkIO.h"

#include <optional>
#include <string>
#include <string_view>

/// What the console writes: the lines of the console window and of the terminal client, as plain
/// functions. Words of others stand in them as they came; whoever shows them makes them safe.
namespace ConsoleLines {

/// "Vimble " and the version, or "0.0" where the bundle has none.
std::string banner(const std::optional<std::string>& shortVersion);

std::string line(const NetworkIO& traffic);
std::string line(Online online);

/// Nothing for the server's answers to commands: the line of traffic has shown them.
std::optional<std::string> line(const Event& event);

}  // namespace ConsoleLines
