#include "DesktopKit/PersonView.h"

#include "DesktopKit/RosterModel.h"
#include "DesktopViews/LineText.h"
#include "DesktopViews/Look.h"

#include <QAbstractItemView>
#include <QFontMetrics>
#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QToolTip>

#include <algorithm>
#include <cmath>

namespace {

constexpr double textPoints = 13;
constexpr double emojiPoints = 14;
constexpr double inset = 6;  // the selection's distance from the sides of the list
constexpr double radius = 5;

double emojiLeft() { return 11; }
double emojiWidth() { return Look::scaled(20); }
double nameLeft() { return emojiLeft() + emojiWidth() + 5; }
double nameWidth(const QRect& row) { return row.width() - nameLeft() - inset - 4; }

}  // namespace

PersonView::Style PersonView::style(bool isOnline, const QPalette& palette) {
    if (isOnline) return {1, Look::label(palette), QFont::Medium};
    return {0.5, Look::secondaryLabel(palette), QFont::Normal};
}

int PersonView::rowHeight() {
    const int needed = QFontMetrics(Look::font(textPoints, QFont::Medium)).height() + 4;
    return std::max(24, needed);
}

QColor PersonView::drawSelection(QPainter& painter, const QRect& row, const QPalette& palette, bool hasFocus) {
    QColor background = palette.color(QPalette::Active, QPalette::Highlight);
    if (!hasFocus) {
        background = palette.color(QPalette::Text);
        background.setAlphaF(0.13F);
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawRoundedRect(row.toRectF().adjusted(inset, 0, -inset, 0), radius, radius);
    painter.restore();
    return hasFocus ? palette.color(QPalette::Active, QPalette::HighlightedText) : Look::label(palette);
}

bool PersonView::drawRow(QPainter& painter, const QRect& row, const QString& emoji, const QString& text,
                         const Style& style) {
    painter.save();
    painter.setOpacity(style.emojiOpacity);
    const QRectF emojiPlace(row.left() + emojiLeft(), row.top(), emojiWidth(), row.height());
    LineText(emoji, Look::font(emojiPoints), emojiWidth()).draw(painter, emojiPlace, style.color, Qt::AlignHCenter);
    painter.restore();
    const QRectF namePlace(row.left() + nameLeft(), row.top(), nameWidth(row), row.height());
    const LineText name(text, Look::font(textPoints, style.weight), nameWidth(row));
    name.draw(painter, namePlace, style.color);
    return name.isElided();
}

void PersonView::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
    Style style = PersonView::style(index.data(RosterModel::isOnlineRole).toBool(), option.palette);
    if (option.state & QStyle::State_Selected) {
        const bool hasFocus = option.widget && option.widget->hasFocus();
        style.color = drawSelection(*painter, option.rect, option.palette, hasFocus);
    }
    drawRow(*painter, option.rect, index.data(RosterModel::emojiRole).toString(),
            index.data(Qt::DisplayRole).toString(), style);
}

QSize PersonView::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    // Rows take the list's width, so ask for almost none: the list may be narrow.
    return {1, rowHeight()};
}

bool PersonView::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                           const QModelIndex& index) {
    if (event->type() != QEvent::ToolTip) return QStyledItemDelegate::helpEvent(event, view, option, index);
    const QString name = index.data(Qt::DisplayRole).toString();
    const bool isOnline = index.data(RosterModel::isOnlineRole).toBool();
    const QFont font = Look::font(textPoints, style(isOnline, option.palette).weight);
    if (LineText(name, font, nameWidth(option.rect)).isElided())
        QToolTip::showText(event->globalPos(), Qt::convertFromPlainText(name, Qt::WhiteSpaceNormal), view);
    else
        QToolTip::hideText();
    return true;
}
