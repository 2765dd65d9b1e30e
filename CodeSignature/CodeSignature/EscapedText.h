#pragma once

#include <string>
#include <string_view>

/// Makes texts of others (names of files, of certificates) safe to print within a line.
///
/// Control characters, those that end a line or change the direction of writing, what is no UTF-8 and
/// the backslash become "\xHH" for each of their bytes. So no name makes a line of its own, and two names
/// look the same only if they are.
[[nodiscard]] std::string escapedText(std::string_view text);

/// Whether a text is UTF-8 and holds nothing that is escaped above, except backslashes.
[[nodiscard]] bool isPlainText(std::string_view text);
