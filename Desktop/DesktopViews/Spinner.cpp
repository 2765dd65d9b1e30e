#include "DesktopViews/Spinner.h"

#include "DesktopViews/Look.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr int spokes = 8;
constexpr int roundMs = 960;

}  // namespace

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Connecting"));
    timer.setInterval(roundMs / spokes);
    connect(&timer, &QTimer::timeout, this, &Spinner::turn);
    hide();
}

void Spinner::start() {
    _isSpinning = true;
    show();
}

void Spinner::stop() {
    _isSpinning = false;
    hide();
}

QSize Spinner::sizeHint() const {
    const int side = static_cast<int>(std::lround(Look::scaled(13)));
    return {side, side};
}

void Spinner::turn() {
    step = (step + 1) % spokes;
    update();
}

void Spinner::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (_isSpinning) timer.start();
}

void Spinner::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    timer.stop();
}

void Spinner::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = std::min(width(), height());
    painter.translate(rect().toRectF().center());
    QPen pen(palette().color(foregroundRole()), side * 0.11);
    pen.setCapStyle(Qt::RoundCap);
    painter.setPen(pen);
    for (int spoke = 0; spoke < spokes; ++spoke) {
        // The spoke at `step` is the darkest; the others are the lighter, the longer ago it was their turn.
        const int age = (step - spoke + spokes) % spokes;
        painter.setOpacity(0.75 - 0.6 * age / (spokes - 1));
        painter.save();
        painter.rotate(360.0 * spoke / spokes);
        painter.drawLine(QPointF(0, -side * 0.24), QPointF(0, -side * 0.43));
        painter.restore();
    }
}
