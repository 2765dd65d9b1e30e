#include "DesktopViews/Icons.h"

#include <QFile>
#include <QIconEngine>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

namespace {

struct Tint {
    QColor normal;
    QColor disabled;
};

/// Draws an icon from an SVG outline. Qt's own engine for that is a plugin that may be missing, and can't tint.
class OutlineEngine : public QIconEngine {
public:
    OutlineEngine(std::shared_ptr<QSvgRenderer> outline, std::optional<Tint> tint)
        : outline(std::move(outline)), tint(std::move(tint)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        const qreal ratio = painter->device()->devicePixelRatio();
        QPixmap drawn = render((QSizeF(rect.size()) * ratio).toSize(), mode);
        drawn.setDevicePixelRatio(ratio);
        painter->drawPixmap(rect, drawn);
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) override { return render(size, mode); }

    QIconEngine* clone() const override { return new OutlineEngine(*this); }

    /// The sizes for window managers and trays, which take pictures of fixed sizes.
    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const int side : {16, 22, 24, 32, 48, 64, 128, 256}) sizes.emplace_back(side, side);
        return sizes;
    }

private:
    /// @param size  in pixels of the device
    QPixmap render(const QSize& size, QIcon::Mode mode) const {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        if (size.isEmpty()) return pixmap;
        const int side = std::min(size.width(), size.height());
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        if (!tint && mode == QIcon::Disabled) painter.setOpacity(0.4);
        outline->render(&painter, QRectF((size.width() - side) / 2.0, (size.height() - side) / 2.0, side, side));
        if (tint) {
            painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
            painter.fillRect(pixmap.rect(), mode == QIcon::Disabled ? tint->disabled : tint->normal);
        }
        return pixmap;
    }

    std::shared_ptr<QSvgRenderer> outline;  // shared by the copies of an icon; never changed
    std::optional<Tint> tint;
};

QIcon load(const QString& name, std::optional<Tint> tint) {
    const QString file = QStringLiteral(":/vimble/%1.svg").arg(name);
    if (!QFile::exists(file)) return {};
    auto outline = std::make_shared<QSvgRenderer>(file);
    return QIcon(new OutlineEngine(std::move(outline), std::move(tint)));
}

}  // namespace

QIcon Icons::app() { return load(QStringLiteral("VimbleIcon"), std::nullopt); }

QIcon Icons::symbol(const QString& name, const QPalette& palette) {
    return load(name, Tint{palette.color(QPalette::Active, QPalette::ButtonText),
                           palette.color(QPalette::Disabled, QPalette::ButtonText)});
}
