#include "DesktopKit/OutcomeBox.h"

#include "DesktopViews/Look.h"

#include <QPainter>

void OutcomeBox::setOutcome(std::optional<bool> newOutcome) {
    isGood = newOutcome;
    update();
}

QColor OutcomeBox::color() const {
    if (!isGood) return Look::divider(palette());
    return *isGood ? green() : red();
}

void OutcomeBox::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color());
    painter.drawRoundedRect(rect(), 6, 6);
}
