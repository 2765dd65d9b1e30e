#include "DesktopViews/ElidedLabel.h"

#include "DesktopViews/LineText.h"
#include "DesktopViews/Look.h"

#include <QFontMetrics>
#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QToolTip>

#include <cmath>
#include <limits>

ElidedLabel::ElidedLabel(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void ElidedLabel::setText(const QString& text) {
    if (_text == text) return;
    _text = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

void ElidedLabel::setAlignment(Qt::Alignment newAlignment) {
    alignment = newAlignment;
    update();
}

void ElidedLabel::setIndent(int newIndent) {
    indent = newIndent;
    updateGeometry();
    update();
}

QSize ElidedLabel::sizeHint() const {
    const double width = LineText(_text, font(), std::numeric_limits<double>::max()).width();
    return {static_cast<int>(std::ceil(width)) + indent, fontMetrics().height()};
}

QSize ElidedLabel::minimumSizeHint() const { return {0, fontMetrics().height()}; }

bool ElidedLabel::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QWidget::event(event);
    if (LineText(_text, font(), width() - indent).isElided())
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(),
                           Qt::convertFromPlainText(_text, Qt::WhiteSpaceNormal), this);
    else
        QToolTip::hideText();
    return true;
}

void ElidedLabel::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange) updateGeometry();
    update();
    QWidget::changeEvent(event);
}

void ElidedLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    LineText(_text, font(), width() - indent)
        .draw(painter, rect().adjusted(indent, 0, 0, 0), palette().color(foregroundRole()), alignment);
}
