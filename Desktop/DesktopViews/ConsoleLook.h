#pragma once

#include <QColor>
#include <QFont>

/// The console's own colours, the same in light and dark palettes: white on blue, as consoles were.
///
/// The contrast of every text with its background is at least 4.5 (WCAG 2.1); the numbers below are such contrasts.
namespace ConsoleLook {

inline const QColor background(0x0b, 0x57, 0xc8);       // blue; white on it: 6.5
inline const QColor inputBackground(0x08, 0x3f, 0x94);  // deeper blue of the command line; white on it: 9.8
inline const QColor edge(0x06, 0x30, 0x6f);             // the line between log and command line
inline const QColor text(Qt::white);
inline const QColor logSelection(0x06, 0x30, 0x6f);
inline const QColor prompt(0xff, 0xd6, 0x0a);  // yellow; 6.9 on the input
inline const QColor selectedText(prompt);
inline const QColor selection(0x6b, 0x4a, 0x1f);       // brown; the yellow on it: 5.7
inline const QColor insertionPoint(0xff, 0x9f, 0x0a);  // orange; 4.8 on the input
inline const QColor placeholder(0xb4, 0xcb, 0xf0);     // 5.9 on the input

QFont font();

}  // namespace ConsoleLook
