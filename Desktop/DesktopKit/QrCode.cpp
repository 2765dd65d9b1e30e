#include "DesktopKit/QrCode.h"

#include "TweetNacl/Nacl.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <memory>
#include <qrencode.h>
#include <utility>

std::optional<QrCode> QrCode::of(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    struct Free {
        void operator()(QRcode* code) const {
            Nacl::wipe({code->data, count(*code)});
            QRcode_free(code);
        }
        static std::size_t count(const QRcode& code) {
            return static_cast<std::size_t>(code.width) * static_cast<std::size_t>(code.width);
        }
    };
    const std::unique_ptr<QRcode, Free> code(
        QRcode_encodeData(static_cast<int>(std::min<std::size_t>(bytes.size(), 10000)),
                          reinterpret_cast<const unsigned char*>(bytes.data()), 0, QR_ECLEVEL_M));
    if (!code) return std::nullopt;
    const std::shared_ptr<Modules> modules(new Modules(Free::count(*code)), [](Modules* dying) {
        Nacl::wipe(*dying);
        delete dying;
    });
    for (std::size_t at = 0; at < modules->size(); ++at) (*modules)[at] = code->data[at] & 1;
    return QrCode(code->width, modules);
}

void QrCode::paint(QPainter& painter, const QRectF& place, QuietZone quietZone) const {
    // Calculate in dots of the device, so that no module has a grey edge.
    const QTransform toDots = painter.deviceTransform();
    const QRectF dots = toDots.mapRect(place);
    const int quiet = quietZone == QuietZone::inside ? quietModules : 0;
    const int all = _size + 2 * quiet;
    const int side = static_cast<int>(std::floor(std::min(dots.width(), dots.height()) / all));
    if (side < 1) return;
    const int left = static_cast<int>(std::lround(dots.center().x() - side * all / 2.0));
    const int top = static_cast<int>(std::lround(dots.center().y() - side * all / 2.0));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, false);
    const QTransform back = toDots.inverted();
    if (quiet > 0) painter.fillRect(back.mapRect(QRectF(left, top, side * all, side * all)), Qt::white);
    for (int y = 0; y < _size; ++y)
        for (int x = 0; x < _size; ++x)
            if (isDark(x, y))
                painter.fillRect(back.mapRect(QRectF(left + (x + quiet) * side, top + (y + quiet) * side, side, side)),
                                 Qt::black);
    painter.restore();
}
