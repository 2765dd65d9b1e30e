#include "DesktopViews/QRScannerView.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <utility>

namespace {

constexpr double cornerRadius = 6;
constexpr QColor emptyColor(179, 179, 179);  // grey of 0.7

/// Where a picture goes that is to fill a place, and loses some of two sides.
QRectF filling(const QSizeF& picture, const QRectF& place) {
    QRectF whole(QPointF(), picture.scaled(place.size(), Qt::KeepAspectRatioByExpanding));
    whole.moveCenter(place.center());
    return whole;
}

/// Where one goes that is to be seen whole.
QRectF fitting(const QSizeF& picture, const QRectF& place) {
    QRectF whole(QPointF(), picture.scaled(place.size(), Qt::KeepAspectRatio));
    whole.moveCenter(place.center());
    return whole;
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
    isOfCamera = true;
    if (_scanner) _scanner->start();
}

void QRScannerView::stop() {
    if (_scanner) _scanner->stop();
}

void QRScannerView::freeze(SharedFrame picture) {
    isOfCamera = false;
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
    // A page from a file has its code near an edge, where a camera's picture has none.
    const QRectF place = isOfCamera ? filling(image.size(), rect()) : fitting(image.size(), rect());
    // As a brush and not as a picture under a clip, whose corners would be jagged.
    QTransform toView;
    if (isOfCamera) toView.translate(width(), 0).scale(-1, 1);
    toView.translate(place.left(), place.top()).scale(place.width() / image.width(), place.height() / image.height());
    QBrush brush(image);
    brush.setTransform(toView);
    QPainterPath picture;
    picture.addRect(place);
    painter.fillPath(shape.intersected(picture), brush);
}
