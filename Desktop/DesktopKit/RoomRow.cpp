#include "DesktopKit/RoomRow.h"

#include "DesktopKit/PersonView.h"
#include "DesktopViews/LineText.h"
#include "DesktopViews/Look.h"
#include "VimbleKit/Kit.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>

namespace {

constexpr std::int64_t mostShown = 99;
constexpr std::size_t mostLookedAt = 1000;
constexpr double countPoints = 10;

QString countText(std::int64_t unread) {
    return unread > mostShown ? QString::number(mostShown) + QLatin1Char('+') : QString::number(unread);
}

}  // namespace

RoomRow::LocalState::LocalState(const State* state) {
    if (!state) return;
    const auto& messages = state->room.messages;
    const auto read = static_cast<std::size_t>(std::max<std::int64_t>(0, state->room.readCount));
    const std::size_t end = messages.size() - std::min(messages.size(), mostLookedAt);
    for (std::size_t i = messages.size(); i > std::max(read, end) && unread <= mostShown;)
        if (messages[--i].author != state->publicKey) ++unread;
}

RoomRow::RoomRow(Kit& kit, QWidget* parent) : QAbstractButton(parent) {
    setText(QStringLiteral("Room"));
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    kit.observeModel<LocalState>(*this, [](RoomRow& self, const LocalState& state) { self.apply(state); });
}

void RoomRow::apply(const LocalState& newState) {
    state = newState;
    showCount();
}

void RoomRow::setRoomOpen(bool isOpen) {
    isRoomOpen = isOpen;
    showCount();
}

void RoomRow::showCount() {
    const std::int64_t count = shownCount();
    setAccessibleName(count == 0 ? text() : text() + QStringLiteral(", %1 unread").arg(countText(count)));
    update();
}

QSize RoomRow::sizeHint() const { return {100, PersonView::rowHeight()}; }
QSize RoomRow::minimumSizeHint() const { return {0, PersonView::rowHeight()}; }

void RoomRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    PersonView::Style style = PersonView::style(true, palette());
    if (hasFocus()) style.color = PersonView::drawSelection(painter, rect(), palette(), true);
    QRect row = rect();
    if (const std::int64_t unread = shownCount(); unread > 0) {
        style.weight = QFont::Bold;
        const LineText count(countText(unread), Look::font(countPoints, QFont::Bold), width());
        const double height = Look::scaled(15);
        QRectF pill(0, 0, std::max(height, count.width() + 9), height);
        pill.moveCenter(rect().toRectF().center());
        pill.moveRight(rect().right() - 11);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(hasFocus() ? palette().color(QPalette::HighlightedText)
                                    : palette().color(QPalette::Highlight));
        painter.drawRoundedRect(pill, height / 2, height / 2);
        count.draw(painter, pill,
                   hasFocus() ? palette().color(QPalette::Highlight) : palette().color(QPalette::HighlightedText),
                   Qt::AlignHCenter);
        row.setRight(static_cast<int>(pill.left()));
    }
    PersonView::drawRow(painter, row, QStringLiteral("💬"), text(), style);
}

void RoomRow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::ApplicationFontChange) updateGeometry();
    QAbstractButton::changeEvent(event);
}

void RoomRow::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Space:
        case Qt::Key_Return:
        case Qt::Key_Enter: click(); return;
        case Qt::Key_Down:
            if (onLeaveDownwards) onLeaveDownwards();
            return;
        // The base class would walk to other buttons with these.
        case Qt::Key_Up:
        case Qt::Key_Left:
        case Qt::Key_Right: return;
    }
    QAbstractButton::keyPressEvent(event);
}

// A single click only selects, as in the list below.
void RoomRow::mousePressEvent(QMouseEvent* event) { event->accept(); }
void RoomRow::mouseReleaseEvent(QMouseEvent* event) { event->accept(); }
void RoomRow::mouseMoveEvent(QMouseEvent* event) { event->accept(); }

void RoomRow::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) click();
}

void RoomRow::focusInEvent(QFocusEvent* event) {
    QAbstractButton::focusInEvent(event);
    update();
}

void RoomRow::focusOutEvent(QFocusEvent* event) {
    QAbstractButton::focusOutEvent(event);
    update();
}
