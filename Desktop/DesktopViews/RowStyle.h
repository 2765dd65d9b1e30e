#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

/// Fonts, distances and colours of a transcript's rows, all in device-independent pixels.
///
/// From left to right a row of text has a margin, the time, the emoji, the text and a margin. A value: make a new
/// one when the palette or font of the desktop changes.
struct RowStyle {
    explicit RowStyle(const QPalette& palette);

    /// The room for a text in a view of that width.
    int textWidth(int width) const;

    QFont messageFont;
    QFont largeEmojiFont;  // for a message that is a few emoji and nothing else
    QFont timeFont;
    QFont emojiFont;
    QFont nameFont;
    QFont activityFont;
    QFont dayFont;

    int margin = 0;
    int timeRight = 0;  // where the times end
    int emojiLeft = 0;
    int emojiWidth = 0;
    int textLeft = 0;
    int padding = 0;       // above and below the text of any row
    int blockPadding = 0;  // in addition to padding, above the first row of a block
    int notePadding = 0;   // above and below an activity
    int dayPadding = 0;
    int lineHeight = 0;  // of a message; a line with taller letters is higher
    int lineAscent = 0;
    int nameHeight = 0;
    int noteHeight = 0;  // of one line of an activity
    int dayHeight = 0;   // of the heading's line
    double characterWidth = 0;

    QPalette palette;
    QColor label;
    QColor secondary;
    QColor tertiary;
    QColor divider;
};
