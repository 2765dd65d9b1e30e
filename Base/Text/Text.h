#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Questions about text as people see it, by the rules of Unicode (utf8proc).
///
/// Texts are UTF-8; bytes that are not count as one character each.
namespace Text {

/// The first `count` user-perceived characters: an emoji with its modifiers is one.
[[nodiscard]] std::string_view prefix(std::string_view text, std::size_t count);

/// Without whitespace and line ends at both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// Whether there is a whitespace character or line end anywhere.
[[nodiscard]] bool hasWhitespace(std::string_view text);

[[nodiscard]] bool isUtf8(std::string_view text);

/// The text with control characters, and characters that change the direction of what stands beside
/// them, written as escapes ("\n", "\u{202e}"), and the backslash doubled: safe to show in a line.
[[nodiscard]] std::string escaped(std::string_view text);

/// The text with differences of case, and of composition of the same characters, taken out: two names for
/// which it is equal are one name to a file system that does not look at case. A text that is not UTF-8
/// comes back as it is.
[[nodiscard]] std::string caseFolded(std::string_view text);

}  // namespace Text
