#include "DesktopViews/QRScannerView.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <utility>

namespace {

constexpr double cornerRadius = 6;
constexpr QColor emptyColor(179, 179, 179);  // grey of 0.7

/// The rectangle in which a picture fills `place`: it is cut at two sides if the shapes differ.
QRectF filling(const QSizeF& picture, const QRectF& place) {
    QRectF whole(QPointF(), picture.scaled(place.size(), Qt::KeepAspectRatioByExpanding));
    whole.moveCenter(place.center());
    return whole;
}

/// The rectangle in which all of a picture is visible in `place`.
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
    // Show a picture from a file whole: a page has its code near an edge, which filling the view could cut off.
    const QRectF place = isOfCamera ? filling(image.size(), rect()) : fitting(image.size(), rect());
    // Paint with a brush: a picture under a clip path would have jagged corners.
    QTransform toView;
    if (isOfCamera) toView.translate(width(), 0).scale(-1, 1);
    toView.translate(place.left(), place.top()).scale(place.width() / image.width(), place.height() / image.height());
    QBrush brush(image);
    brush.setTransform(toView);
    QPainterPath picture;
    picture.addRect(place);
    painter.fillPath(shape.intersected(picture), brush);
}
