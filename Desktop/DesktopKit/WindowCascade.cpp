#include "DesktopKit/WindowCascade.h"

#include <algorithm>

namespace {

/// Along one direction: where a frame of that length begins.
int fitted(int start, int length, int areaStart, int areaLength) {
    if (start < areaStart || start + length > areaStart + areaLength) return areaStart;
    return start;
}

}  // namespace

QPoint WindowCascade::centred(QSize frame, QRect area) {
    // A frame that is larger than the area keeps its title in sight.
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
