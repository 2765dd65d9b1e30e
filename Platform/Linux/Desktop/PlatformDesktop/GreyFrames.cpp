#include "PlatformDesktop/GreyFrames.h"

#include <QPainter>

#include <cstring>

namespace {

bool fits(const QSize& size) {
    return !size.isEmpty() && size.width() <= GreyFrame::maximumSide && size.height() <= GreyFrame::maximumSide;
}

}  // namespace

SharedFrame GreyFrames::of(const QImage& image) {
    if (!fits(image.size())) return nullptr;
    QImage opaque = image;
    if (image.hasAlphaChannel()) {
        opaque = QImage(image.size(), QImage::Format_RGB32);
        if (opaque.isNull()) return nullptr;
        opaque.fill(Qt::white);
        QPainter painter(&opaque);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        QImage plain = image;
        plain.setDevicePixelRatio(1);
        painter.drawImage(0, 0, plain);
    }
    const QImage grey = opaque.convertToFormat(QImage::Format_Grayscale8);
    if (grey.isNull()) return nullptr;
    auto frame = std::make_shared<GreyFrame>(grey.width(), grey.height());
    for (int y = 0; y < grey.height(); ++y) {
        const auto to = frame->row(y);
        std::memcpy(to.data(), grey.constScanLine(y), to.size());
    }
    return frame;
}
