#pragma once

#include <vector>

#include <QString>

/// Finds the emoji of a text, so that they can be given a font in colour. One list of fonts for the whole text
/// won't do: with the emoji font first, digits and blanks are drawn from it; with another font first, that font
/// draws its own black emoji.
namespace EmojiRanges {

struct Range {
    qsizetype start = 0;  // in UTF-16 units
    qsizetype length = 0;

    bool operator==(const Range&) const = default;
};

/// Runs of user-perceived characters that are shown as emoji by default, or by a variation selector
/// (Unicode Technical Standard 51). Neighbours are one range. Linear.
std::vector<Range> find(const QString& text);

/// Whether the text is between one and `most` emoji and nothing else, blanks aside.
bool isOnlyEmoji(const QString& text, int most);

}  // namespace EmojiRanges
