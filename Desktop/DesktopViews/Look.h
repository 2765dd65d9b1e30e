#pragma once

#include "TranscriptKit/AuthorColor.h"

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>
#include <QTextLayout>
#include <QVector>

/// Fonts and colours for what the program draws itself: they follow the desktop's font and palette.
///
/// Sizes are in points of the design, in which the desktop's own text has 13 points. With a desktop font of the
/// usual size a point is a device-independent pixel; a larger desktop font makes everything larger in
/// proportion. Main thread, with a QApplication.
namespace Look {

/// The desktop's font. Emoji are drawn in colour if an emoji font is installed and the desktop's own font has no
/// emoji; `emojiFormats` works in any case.
QFont font(double points, QFont::Weight weight = QFont::Normal);
QFont monospacedFont(double points, QFont::Weight weight = QFont::Normal);
/// A font for a label that holds an emoji and nothing else.
QFont emojiFont(double points);

/// Makes Qt find and load the fonts of the first window, a good part of the time that the window takes to show.
/// Call it when there is nothing else to do.
void loadFonts();

/// The design's points as device-independent pixels, for distances that go with a text's size.
double scaled(double points);

/// The formats that give the emoji of a text their font, for QTextLayout.
QVector<QTextLayout::FormatRange> emojiFormats(const QString& text, const QFont& font);

bool isDark(const QPalette& palette);
QColor label(const QPalette& palette);
QColor secondaryLabel(const QPalette& palette);
QColor tertiaryLabel(const QPalette& palette);
QColor divider(const QPalette& palette);
QColor offlineBackground(const QPalette& palette);
/// The colour of a person's name on the palette's background.
QColor author(std::string_view publicKey, const QPalette& palette);

}  // namespace Look
