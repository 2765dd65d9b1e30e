#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

/// Places new windows so that none hides the title of the one before. Plain geometry, in device-independent
/// pixels; a frame is a window with its decoration.
namespace WindowCascade {

/// The top-left of a frame in the middle of an area.
QPoint centred(QSize frame, QRect area);

struct Step {
    QPoint topLeft;  // of the frame that is being placed
    QPoint next;     // where the next one starts

    bool operator==(const Step&) const = default;
};

/// Puts a frame at a point, and the next one lower and further to the right by `offset`. If the frame would
/// leave the area at the right or at the bottom, it begins again at the area's left or top.
/// @param area  the usable part of the screen; a null one sets no limits
Step step(QPoint start, QSize frame, QRect area, int offset);

}  // namespace WindowCascade
