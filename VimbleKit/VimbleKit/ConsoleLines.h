#pragma once

#include "VimbleKit/Connection.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/NetworkIO.h"

#include <optional>
#include <string>
#include <string_view>

/// The lines of the console window and of the terminal client, as plain functions. They contain other
/// people's texts unchanged, so the caller must make a line safe before showing it.
namespace ConsoleLines {

/// "Vimble " and the version, or "0.0" where the bundle has none.
std::string banner(const std::optional<std::string>& shortVersion);

std::string line(const NetworkIO& traffic);
std::string line(Online online);

/// Nothing for the server's answers to commands, since a line of traffic has shown them already.
std::optional<std::string> line(const Event& event);

}  // namespace ConsoleLines
