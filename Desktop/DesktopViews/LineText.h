#pragma once

#include <QColor>
#include <QFont>
#include <QPainter>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QTextLayout>

/// A plain text laid out on one line, with its emoji in colour, and cut off with "…" if it is wider than
/// `maxWidth`.
///
/// Different texts in one font have the same baseline, whatever emoji they hold. A text that reads from right to
/// left is aligned at the left too, as a column of names needs it.
class LineText {
public:
    /// @param text  one line, already safe to show
    /// @param maxWidth  in device-independent pixels
    LineText(const QString& text, const QFont& font, double maxWidth);
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;

    bool isElided() const { return _isElided; }
    /// In device-independent pixels; at most `maxWidth`, unless that is too little even for "…".
    double width() const;

    /// Draws the line in the middle of the rectangle's height.
    void draw(QPainter& painter, const QRectF& place, const QColor& color,
              Qt::Alignment alignment = Qt::AlignLeft) const;

private:
    void layOut(const QString& text);

    QFont font;
    QTextLayout layout;
    bool _isElided = false;
};
