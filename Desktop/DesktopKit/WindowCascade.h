#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

/// Where new windows go, so that none hides the title of the one before. Plain geometry, in
/// device-independent pixels; frames are windows with their decoration.
namespace WindowCascade {

/// The top-left of a frame that stands in the middle of an area.
QPoint centred(QSize frame, QRect area);

struct Step {
    QPoint topLeft;  // of the frame that is being placed
    QPoint next;     // where the next one starts

    bool operator==(const Step&) const = default;
};

/// Puts a frame at a point, and the next one lower and further to the right by `offset`. Where the frame
/// would stick out of the area at the right or at the bottom, it begins again at the area's left or top.
/// @param area  the usable part of the screen; a null one bounds nothing
Step step(QPoint start, QSize frame, QRect area, int offset);

}  // namespace WindowCascade
