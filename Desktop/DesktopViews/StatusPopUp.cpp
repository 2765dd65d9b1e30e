#include "DesktopViews/StatusPopUp.h"

#include "DesktopViews/LineText.h"
#include "DesktopViews/Look.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

constexpr int padding = StatusPopUp::textIndent;

int arrowRoom() { return static_cast<int>(std::lround(Look::scaled(14))); }

}  // namespace

StatusPopUp::StatusPopUp(QWidget* parent) : QComboBox(parent) {
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
}

void StatusPopUp::setItems(const QStringList& items) {
    QStringList present;
    for (int index = 0; index < count(); ++index) present.append(itemText(index));
    if (present != items) {
        hidePopup();
        clear();
        addItems(items);
        updateGeometry();
    }
    setCurrentIndex(0);
}

void StatusPopUp::setArrowVisible(bool isVisible) {
    if (_isArrowVisible == isVisible) return;
    _isArrowVisible = isVisible;
    updateGeometry();
    update();
}

QSize StatusPopUp::sizeHint() const {
    int width = 0;
    for (int index = 0; index < count(); ++index)
        width = std::max(width, fontMetrics().horizontalAdvance(itemText(index)));
    return {width + 1 + 2 * padding + (_isArrowVisible ? arrowRoom() : 0), fontMetrics().height() + 2};
}

QSize StatusPopUp::minimumSizeHint() const { return {0, sizeHint().height()}; }

void StatusPopUp::wheelEvent(QWheelEvent* event) { event->ignore(); }

void StatusPopUp::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // Use the active colours also when disabled, so that the text stays readable.
    QPalette colors = palette();
    colors.setCurrentColorGroup(QPalette::Active);
    const QColor ink = Look::secondaryLabel(colors);
    if (isEnabled() && (underMouse() || hasFocus())) {
        QColor background = Look::label(palette());
        background.setAlphaF(underMouse() ? 0.09F : 0.05F);
        painter.setPen(Qt::NoPen);
        painter.setBrush(background);
        painter.drawRoundedRect(rect(), 4, 4);
    }
    if (hasFocus()) {
        painter.setPen(palette().color(QPalette::Highlight));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(rect().toRectF().adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    }
    const double room = width() - 2 * padding - (_isArrowVisible ? arrowRoom() : 0);
    const LineText text(currentText(), font(), room);
    text.draw(painter, rect().toRectF().adjusted(padding, 0, 0, 0), ink);
    if (!_isArrowVisible) return;

    const double half = Look::scaled(3);
    const QPointF tip(padding + text.width() + arrowRoom() / 2.0 + 1, rect().toRectF().center().y() + half / 2 + 0.5);
    QPainterPath arrow(tip + QPointF(-half, -half));
    arrow.lineTo(tip);
    arrow.lineTo(tip + QPointF(half, -half));
    painter.setPen(QPen(ink, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(arrow);
}
