#pragma once

#include "VimbleKit/Person.h"

#include <string_view>

#include <QString>

/// The words of others, made fit to be shown beside those of the program.
///
/// Qt's labels guess at mark-up unless told otherwise: whoever shows these sets plain text.
namespace DisplayText {

/// A name, emoji or other short word for a line of the program's own: line ends and tabs become blanks,
/// other control characters and those that change the direction of what follows go, and a text that
/// holds right-to-left letters stands between isolates (U+2068, U+2069), so that its neighbours stay
/// where they are. A text of ordinary letters is unchanged. At most 200 user-perceived characters, then
/// "…"; of one character, at most 16 combining marks and 32 code points are kept. What is not valid UTF-8,
/// and what is no character, becomes U+FFFD.
QString name(std::string_view text);

/// Somebody's display name, as `name` shows it. Of whoever has chosen one in which there is nothing to be seen
/// (blanks, marks, fillers, what `name` takes away), that of those who have none: nobody goes without a name.
QString person(const Person& person);

/// A line of the console: everything that could steer what stands beside it is shown as an escape
/// ("\n", "\u{202e}", "\xff" for a byte that is not UTF-8); the backslash stays single.
QString line(std::string_view text);

/// A message: lines (of any kind of end, each given as "\n") and tabs stay, other control characters go, and
/// every line that opens a change of direction without closing it is closed at its end; what closes one that
/// the line did not open goes. What is not valid UTF-8, and what is no character, becomes U+FFFD. Linear.
QString message(std::string_view text);

}  // namespace DisplayText
