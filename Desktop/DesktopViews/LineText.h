#pragma once

#include <QColor>
#include <QFont>
#include <QPainter>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QTextLayout>

/// A text on one line, laid out to be drawn: plain, with its emoji in colour, and cut off with "…" where
/// it would be wider than its place.
///
/// Lines of different texts in one font share their baseline, whatever emoji they hold. It begins at the
/// left also where it reads from the right, as a column of names wants it.
class LineText {
public:
    /// @param text  one line, fit to be shown
    /// @param maxWidth  in device-independent pixels
    LineText(const QString& text, const QFont& font, double maxWidth);
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;

    bool isElided() const { return _isElided; }
    /// In device-independent pixels; never above the maximum, but for a place that doesn't even hold "…".
    double width() const;

    /// In the middle of the rectangle's height.
    void draw(QPainter& painter, const QRectF& place, const QColor& color,
              Qt::Alignment alignment = Qt::AlignLeft) const;

private:
    void layOut(const QString& text);

    QFont font;
    QTextLayout layout;
    bool _isElided = false;
};
