#include "DesktopKit/QrCode.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <memory>
#include <qrencode.h>
#include <utility>

std::optional<QrCode> QrCode::of(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    struct Free {
        void operator()(QRcode* code) const { QRcode_free(code); }
    };
    const std::unique_ptr<QRcode, Free> code(
        QRcode_encodeData(static_cast<int>(std::min<std::size_t>(bytes.size(), 10000)),
                          reinterpret_cast<const unsigned char*>(bytes.data()), 0, QR_ECLEVEL_M));
    if (!code) return std::nullopt;
    const auto count = static_cast<std::size_t>(code->width) * static_cast<std::size_t>(code->width);
    std::vector<bool> modules(count);
    for (std::size_t at = 0; at < count; ++at) modules[at] = (code->data[at] & 1) != 0;
    return QrCode(code->width, std::move(modules));
}

void QrCode::paint(QPainter& painter, const QRectF& place) const {
    // In the dots of the device, so that no module has a grey edge.
    const QTransform toDots = painter.deviceTransform();
    const QRectF dots = toDots.mapRect(place);
    const int all = _size + 2 * quietZone;
    const int side = static_cast<int>(std::floor(std::min(dots.width(), dots.height()) / all));
    if (side < 1) return;
    const int left = static_cast<int>(std::lround(dots.center().x() - side * all / 2.0));
    const int top = static_cast<int>(std::lround(dots.center().y() - side * all / 2.0));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, false);
    const QTransform back = toDots.inverted();
    painter.fillRect(back.mapRect(QRectF(left, top, side * all, side * all)), Qt::white);
    for (int y = 0; y < _size; ++y)
        for (int x = 0; x < _size; ++x)
            if (isDark(x, y))
                painter.fillRect(
                    back.mapRect(QRectF(left + (x + quietZone) * side, top + (y + quietZone) * side, side, side)),
                    Qt::black);
    painter.restore();
}
