#pragma once

#include <QStringView>
#include <QTextOption>

/// How the words of others and of the user are broken into lines.
namespace Wrapping {

/// The longest run of characters without a place to break that is looked at as a word.
inline constexpr qsizetype longestWord = 1000;

/// Between words, and within one that is longer than a line; anywhere in a text with a word above
/// `longestWord`. For each line of such a word the toolkit looks as far as its end: one of 65,000 characters
/// took 160 ms, one of 200,000 seconds, where breaking anywhere is linear. Linear itself.
QTextOption::WrapMode of(QStringView text);

}  // namespace Wrapping
