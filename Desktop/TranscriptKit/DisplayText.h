#pragma once

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
/// "…"; of one character, at most 16 combining marks are kept.
QString name(std::string_view text);

/// A line of the console: everything that could steer what stands beside it is shown as an escape
/// ("\n", "\u{202e}"); the backslash stays single.
QString line(std::string_view text);

/// A message: lines and tabs stay, other control characters go, and every line that opens a change of
/// direction without closing it is closed at its end.
QString message(std::string_view text);

}  // namespace DisplayText
