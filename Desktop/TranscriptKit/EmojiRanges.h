#pragma once

#include <vector>

#include <QString>

/// Where the emoji of a text stand, so that they can be given a font in colour. A font for all of a text
/// won't do: with the emoji font first, digits and blanks come out of it; with another first, it draws
/// emoji of its own in black.
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
