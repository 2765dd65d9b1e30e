#include "DesktopViews/ConnectionView.h"

#include "DesktopViews/Icons.h"
#include "DesktopViews/Look.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr int margin = 6;
constexpr int gap = 3;
constexpr double pillHeight = 23;
constexpr double iconSize = 13;
constexpr double textSize = 11;

/// The length in pixels. It grows with a larger desktop font, so that the text fits, and does not shrink with a
/// smaller one.
int atLeast(double points) { return static_cast<int>(std::lround(std::max(points, Look::scaled(points)))); }

/// The glyph "offline", in the colour of the text beside it.
class OfflineIcon : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        Icons::symbol(QStringLiteral("offline"), palette()).paint(&painter, rect());
    }
};

}  // namespace

ConnectionView::ConnectionView(QWidget* parent)
    : RoundRect(parent), icon(new OfflineIcon(this)), status(new QLabel(this)) {
    status->setTextFormat(Qt::PlainText);
    status->setText(QStringLiteral("Offline"));
    setAccessibleName(QStringLiteral("Offline"));
    // Without a cursor of its own, the pill would show the I-beam of the text field beneath.
    setCursor(Qt::ArrowCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    applyLook();
}

void ConnectionView::setState(State state) {
    _state = state;
    updateGeometry();
}

QSize ConnectionView::sizeHint() const {
    if (_state == State::normal) return {0, 0};
    return {icon->width() + margin + gap + status->sizeHint().width() + margin, atLeast(pillHeight)};
}

void ConnectionView::place(const QRect& area) {
    const QSize size = sizeHint();
    setGeometry(area.x() + area.width() - distance - size.width(), area.y() + (area.height() - size.height()) / 2,
                size.width(), size.height());
}

bool ConnectionView::event(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationFontChange) applyLook();
    return RoundRect::event(event);
}

void ConnectionView::resizeEvent(QResizeEvent* event) {
    RoundRect::resizeEvent(event);
    const int iconTop = (height() - icon->height()) / 2;
    icon->move(margin, iconTop);
    const QSize text = status->sizeHint();
    status->setGeometry(margin + icon->width() + gap, (height() - text.height()) / 2, text.width(), text.height());
}

void ConnectionView::applyLook() {
    const int side = atLeast(iconSize);
    icon->resize(side, side);
    status->setFont(Look::font(textSize, QFont::Medium));
    setColor(Look::offlineBackground(palette()));
    QPalette inner = palette();
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::ButtonText})
        inner.setColor(role, Look::label(palette()));
    if (inner != status->palette()) status->setPalette(inner);
    if (inner != icon->palette()) icon->setPalette(inner);
    updateGeometry();
}
