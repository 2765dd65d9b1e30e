#pragma once

#include <exception>
#include <optional>
#include <string>

/// What the user can do about a move that failed: for missing permission, a read-only volume and a full disk.
/// Looks first at the error nested in this one (`std::nested_exception`), and then at this one's code.
/// @return nothing if there is nothing that the user could do
[[nodiscard]] std::optional<std::string> userActionMessage(const std::exception& error);
