#pragma once

#include <exception>
#include <optional>
#include <string>

/// What the user can do about a move that failed: for missing permission, a read-only volume and a full disk.
/// Looks at the error's code, and before that at the error nested in it (`std::nested_exception`).
/// @return nothing if there is nothing that the user could do
std::optional<std::string> userActionMessage(const std::exception& error);
