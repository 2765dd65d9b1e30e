#include "DesktopKit/WindowCascade.h"

#include <algorithm>

namespace {

/// Where a frame of that length begins, in one direction.
int fitted(int start, int length, int areaStart, int areaLength) {
    if (start < areaStart || start + length > areaStart + areaLength) return areaStart;
    return start;
}

}  // namespace

QPoint WindowCascade::centred(QSize frame, QRect area) {
    // Never go beyond the area's top left, so that the title of a frame larger than the area can be seen.
    return {area.x() + std::max(0, (area.width() - frame.width()) / 2),
            area.y() + std::max(0, (area.height() - frame.height()) / 2)};
}

WindowCascade::Step WindowCascade::step(QPoint start, QSize frame, QRect area, int offset) {
    QPoint topLeft = start;
    if (!area.isNull())
        topLeft = {fitted(start.x(), frame.width(), area.x(), area.width()),
                   fitted(start.y(), frame.height(), area.y(), area.height())};
    return {topLeft, topLeft + QPoint(offset, offset)};
}
