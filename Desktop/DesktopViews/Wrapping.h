#pragma once

#include <QStringView>
#include <QTextOption>

/// How texts of others and of the user are broken into lines.
namespace Wrapping {

/// The longest run of characters without a place to break that is treated as a word.
inline constexpr qsizetype longestWord = 1000;

/// Breaks between words, and within a word that is longer than a line; but anywhere if a word of the text is longer
/// than `longestWord`. Qt reads such a word to its end for each of its lines: a word of 65,000 characters took
/// 160 ms, one of 200,000 seconds, while breaking anywhere is linear. This function is linear too.
QTextOption::WrapMode of(QStringView text);

}  // namespace Wrapping
