#include "DesktopViews/LineText.h"

#include "DesktopViews/Look.h"

#include <QFontMetricsF>
#include <QTextOption>

#include <algorithm>

LineText::LineText(const QString& text, const QFont& font, double maxWidth) : font(font) {
    layOut(text);
    if (width() <= maxWidth) return;
    _isElided = true;
    // QFontMetricsF does not know of the emoji's own font, so what it elides may still be too wide: measure again.
    const QFontMetricsF metrics(font);
    double room = maxWidth;
    for (int attempt = 0; attempt < 12 && room > 0; ++attempt) {
        layOut(metrics.elidedText(text, Qt::ElideRight, room));
        if (width() <= maxWidth) return;
        room -= std::max(1.0, width() - maxWidth);
    }
    layOut(QString(QChar(0x2026)));
}

void LineText::layOut(const QString& text) {
    layout.clearLayout();
    layout.setText(text);
    layout.setFont(font);
    layout.setFormats(Look::emojiFormats(text, font));
    QTextOption option;
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(Qt::LeftToRight);
    layout.setTextOption(option);
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
}

double LineText::width() const { return layout.lineCount() > 0 ? layout.lineAt(0).naturalTextWidth() : 0; }

void LineText::draw(QPainter& painter, const QRectF& place, const QColor& color, Qt::Alignment alignment) const {
    if (layout.lineCount() == 0) return;
    const QFontMetricsF metrics(font);
    const double baseline = place.center().y() + (metrics.ascent() - metrics.descent()) / 2;
    double left = place.left();
    if (alignment & Qt::AlignRight) left = place.right() - width();
    if (alignment & Qt::AlignHCenter) left = place.center().x() - width() / 2;
    painter.save();
    painter.setPen(color);
    layout.draw(&painter, QPointF(left, baseline - layout.lineAt(0).ascent()));
    painter.restore();
}
