#include "DesktopViews/QRScannerView.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <utility>

namespace {

constexpr double cornerRadius = 6;
constexpr QColor emptyColor(179, 179, 179);  // grey of 0.7

/// The part of a picture that fills a place of that shape.
QRectF visiblePart(const QSizeF& picture, const QSizeF& place) {
    const double scale = std::max(place.width() / picture.width(), place.height() / picture.height());
    QRectF part(QPointF(), place / scale);
    part.moveCenter(QRectF(QPointF(), picture).center());
    return part;
}

}  // namespace

QRScannerView::QRScannerView(std::unique_ptr<QRScanner> scanner, QWidget* parent)
    : QWidget(parent), _scanner(std::move(scanner)) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setMinimumSize(160, 120);
    setAccessibleName(tr("Camera picture"));
    if (!_scanner) return;
    _scanner->setHandlers({[this](std::string_view payload) { return accept(payload); },
                           [this] {
                               update();
                               if (onChange) onChange();
                           }});
}

QRScannerView::~QRScannerView() = default;

void QRScannerView::start() {
    isMirrored = true;
    if (_scanner) _scanner->start();
}

void QRScannerView::stop() {
    if (_scanner) _scanner->stop();
}

void QRScannerView::freeze(SharedFrame picture) {
    isMirrored = false;
    if (_scanner) _scanner->freeze(std::move(picture));
}

QSize QRScannerView::sizeHint() const { return {320, 240}; }

bool QRScannerView::accept(std::string_view payload) { return delegate && delegate->acceptPayload(*this, payload); }

void QRScannerView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(rect()), cornerRadius, cornerRadius);
    painter.fillPath(shape, emptyColor);
    if (!_scanner || !_scanner->picture() || rect().isEmpty()) return;
    const SharedFrame& frame = _scanner->picture();
    // Borrows the frame's pixels for the length of the painting.
    const QImage image(frame->pixels().data(), frame->width(), frame->height(), frame->width(),
                       QImage::Format_Grayscale8);
    // As a brush and not as a picture under a clip, whose corners would be jagged.
    const QRectF part = visiblePart(image.size(), size());
    QTransform toView;
    if (isMirrored) toView.translate(width(), 0).scale(-1, 1);
    toView.scale(width() / part.width(), height() / part.height()).translate(-part.left(), -part.top());
    QBrush brush(image);
    brush.setTransform(toView);
    painter.fillPath(shape, brush);
}
