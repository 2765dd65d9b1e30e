#include "PlatformDesktop/GreyFrames.h"

#include <QPainter>

#include <algorithm>
#include <cstring>
#include <optional>

namespace {

bool fits(const QSize& size) {
    return !size.isEmpty() && size.width() <= GreyFrame::maximumSide && size.height() <= GreyFrame::maximumSide;
}

/// Where the brightness lies within the first plane.
struct Luma {
    int first;  // bytes before that of the first pixel
    int step;   // bytes from one pixel to the next
};

std::optional<Luma> lumaOf(QVideoFrameFormat::PixelFormat format) {
    switch (format) {
        case QVideoFrameFormat::Format_YUV420P:
        case QVideoFrameFormat::Format_YUV422P:
        case QVideoFrameFormat::Format_YV12:
        case QVideoFrameFormat::Format_NV12:
        case QVideoFrameFormat::Format_NV21:
        case QVideoFrameFormat::Format_IMC1:
        case QVideoFrameFormat::Format_IMC2:
        case QVideoFrameFormat::Format_IMC3:
        case QVideoFrameFormat::Format_IMC4:
        case QVideoFrameFormat::Format_Y8: return Luma{0, 1};
        case QVideoFrameFormat::Format_YUYV: return Luma{0, 2};
        case QVideoFrameFormat::Format_UYVY: return Luma{1, 2};
        default: return std::nullopt;  // of another library, and not ours to complete
    }
}

SharedFrame fromLuma(QVideoFrame& frame, Luma luma) {
    if (!frame.map(QVideoFrame::ReadOnly)) return nullptr;
    const int width = frame.width();
    const int height = frame.height();
    const int stride = frame.bytesPerLine(0);
    std::shared_ptr<GreyFrame> grey;
    // A driver that promises more than it sends would have us read past the end.
    const auto last =
        static_cast<qint64>(stride) * (height - 1) + luma.first + static_cast<qint64>(width - 1) * luma.step;
    if (frame.bits(0) != nullptr && stride >= width * luma.step && last < frame.mappedBytes(0)) {
        grey = std::make_shared<GreyFrame>(width, height);
        for (int y = 0; y < height; ++y) {
            const uchar* from = frame.bits(0) + static_cast<std::ptrdiff_t>(stride) * y + luma.first;
            const auto to = grey->row(y);
            if (luma.step == 1)
                std::memcpy(to.data(), from, to.size());
            else
                for (auto& pixel : to) {
                    pixel = *from;
                    from += luma.step;
                }
        }
    }
    frame.unmap();
    return grey;
}

}  // namespace

SharedFrame GreyFrames::of(const QVideoFrame& frame) {
    if (!frame.isValid() || !fits(frame.size())) return nullptr;
    QVideoFrame mapped = frame;  // the same frame: the toolkit maps no constant one
    if (const auto luma = lumaOf(frame.pixelFormat())) return fromLuma(mapped, *luma);
    return of(frame.toImage());
}

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
