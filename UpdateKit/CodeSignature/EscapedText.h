#pragma once

#include <string>
#include <string_view>

/// Texts of others (names of files, of certificates) made fit to stand in a line of ours.
///
/// Control characters, those that end a line or change the direction of writing, what is no UTF-8 and
/// the backslash become "\xHH" for each of their bytes. So no name makes a line of its own, and two names
/// look the same only if they are.
std::string escapedText(std::string_view text);

/// Whether a text is UTF-8 and holds nothing that is escaped above, but for backslashes.
bool isPlainText(std::string_view text);
