#pragma once

#include <optional>

#include <QColor>
#include <QPainterPath>
#include <QRectF>
#include <QWidget>

/// A filled rectangle with round corners, and nothing else.
///
/// The outline is built once for each size, not at each paint. Main thread only.
class RoundRect : public QWidget {
    Q_OBJECT

public:
    explicit RoundRect(QWidget* parent = nullptr);

    /// The fill; the palette's window background unless set.
    QColor color() const;
    void setColor(const QColor& color);

    /// The corners' radius, in points; 6 unless set. Takes effect at the next change of the bounds.
    double radius() const { return _radius; }
    void setRadius(double radius) { _radius = radius; }

protected:
    void paintEvent(QPaintEvent* event) override;

    /// Builds the shape that is filled.
    virtual QPainterPath outline(const QRectF& bounds) const;

private:
    std::optional<QColor> _color;
    double _radius = 6;
    std::optional<QRectF> cachedBounds;  // the bounds for which cachedOutline was built
    std::optional<QPainterPath> cachedOutline;
};
