#pragma once

#include "TranscriptKit/AuthorColor.h"

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>
#include <QTextLayout>
#include <QVector>

/// Fonts and colours of the program's own drawing: they follow the desktop's font and palette.
///
/// Sizes are in points of the design, of which the desktop's own text has 13: with a desktop font of the
/// usual size a point is a device-independent pixel, and a larger desktop font makes everything larger in
/// proportion. Main thread, with a QApplication.
namespace Look {

/// The desktop's font. Emoji in it come in colour where a font for them is installed and the desktop's
/// own has none; see `emojiFormats`.
QFont font(double points, QFont::Weight weight = QFont::Normal);
QFont monospacedFont(double points, QFont::Weight weight = QFont::Normal);
/// For a label that holds an emoji and nothing else.
QFont emojiFont(double points);

/// Has the toolkit find and load the fonts of the first window, a good part of what that window costs. For
/// a time at which there is nothing else to do.
void loadFonts();

/// The design's points as device-independent pixels, for distances that go with a text's size.
double scaled(double points);

/// What gives the emoji of a text their font, for QTextLayout and the like.
QVector<QTextLayout::FormatRange> emojiFormats(const QString& text, const QFont& font);

bool isDark(const QPalette& palette);
QColor label(const QPalette& palette);
QColor secondaryLabel(const QPalette& palette);
QColor tertiaryLabel(const QPalette& palette);
QColor divider(const QPalette& palette);
QColor offlineBackground(const QPalette& palette);
/// The person's colour on that palette's background.
QColor author(std::string_view publicKey, const QPalette& palette);

}  // namespace Look
