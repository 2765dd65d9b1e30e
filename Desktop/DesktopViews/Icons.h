#pragma once

#include <QIcon>
#include <QPalette>
#include <QString>

/// The program's pictures. They are drawn from outlines at the size and the device pixel ratio that are asked for, so
/// that they are sharp at any. Main thread, with a QApplication.
namespace Icons {

/// The face of the program, in colour.
QIcon app();

/// A glyph in the palette's colour for button texts, and in its disabled colour where the control is disabled.
///
/// The colour is that of now: make the icon again when the palette changes.
/// @param name  "checkmark", "offline", "room", "share" or "xmark"; any other gives a null icon
QIcon symbol(const QString& name, const QPalette& palette);

}  // namespace Icons
