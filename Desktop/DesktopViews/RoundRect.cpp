#include "DesktopViews/RoundRect.h"

#include <QPainter>

RoundRect::RoundRect(QWidget* parent) : QWidget(parent) {}

QColor RoundRect::color() const { return _color.value_or(palette().color(QPalette::Window)); }

void RoundRect::setColor(const QColor& color) {
    if (_color == color) return;
    _color = color;
    update();
}

QPainterPath RoundRect::outline(const QRectF& bounds) const {
    QPainterPath path;
    path.addRoundedRect(bounds, _radius, _radius);
    return path;
}

void RoundRect::paintEvent(QPaintEvent*) {
    const QRectF bounds = rect();
    if (!cachedOutline || cachedBounds != bounds) {
        cachedOutline = outline(bounds);
        cachedBounds = bounds;
    }
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(*cachedOutline, color());
}
