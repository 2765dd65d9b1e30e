#pragma once

#include <QIcon>
#include <QPalette>
#include <QString>

/// The program's pictures. They are drawn from outlines at the wanted size and device pixel ratio, so that they are
/// always sharp. Main thread, with a QApplication.
namespace Icons {

/// The application icon, in colour.
QIcon app();

/// A glyph in the palette's colour for button texts, and in its disabled colour where the control is disabled.
///
/// The icon keeps the colours of `palette`: make it again when the palette changes.
/// @param name  "checkmark", "offline", "room", "share" or "xmark"; any other gives a null icon
QIcon symbol(const QString& name, const QPalette& palette);

}  // namespace Icons
