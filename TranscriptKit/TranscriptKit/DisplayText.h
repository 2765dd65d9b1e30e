#pragma once

#include "VimbleKit/Person.h"

#include <string_view>

#include <QString>

/// Makes the words of others safe to show beside those of the program.
///
/// Qt's labels guess whether a text is mark-up: set `Qt::PlainText` on a label that shows one of these.
namespace DisplayText {

/// A name, emoji or other short word, for use in a line of the program's own. Line ends and tabs become blanks;
/// other control characters, and those that change the direction of text, are removed. A text with
/// right-to-left letters is put between isolates (U+2068, U+2069), so that the words around it stay in place. A
/// text of ordinary letters is unchanged. After 200 user-perceived characters the text is cut with "…"; of one
/// character, at most 16 combining marks and 32 code points are kept. Bytes that are not valid UTF-8, and code
/// points that are no characters, become U+FFFD.
QString name(std::string_view text);

/// A person's display name, as `name` shows it. If nothing of a chosen name is visible (only blanks, marks,
/// fillers, or characters that `name` removes), the person is shown like one who has chosen no name.
QString person(const Person& person);

/// A line of the console: every character that could affect the text around it is shown as an escape
/// ("\n", "\u{202e}", "\xff" for a byte that is not UTF-8); a backslash is not doubled.
QString line(std::string_view text);

/// A message. Line ends of any kind become "\n"; tabs stay, other control characters are removed. A change of
/// direction that a line leaves open is closed at the line's end; a character that closes one which the line
/// did not open is removed. Bytes that are not valid UTF-8, and code points that are no characters, become
/// U+FFFD. Linear.
QString message(std::string_view text);

}  // namespace DisplayText
