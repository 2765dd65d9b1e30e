#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QStyledItemDelegate>

/// Draws one row of the list of people, emoji and name; the same object draws every row.
///
/// A person who is online has a medium weight and a full emoji; one who is offline is paler and regular. A
/// name too long for the row is cut off; the tool-tip shows all of it.
class PersonView : public QStyledItemDelegate {
    Q_OBJECT

public:
    /// How a person's row looks.
    struct Style {
        double emojiOpacity;
        QColor color;
        QFont::Weight weight;
    };
    static Style style(bool isOnline, const QPalette& palette);

    /// 24 points, or what a large desktop font needs, in device-independent pixels.
    static int rowHeight();

    /// Draws the background of a selected row, also for widgets beside the list that look like its rows.
    /// @param hasFocus  whether the row has the keyboard
    /// @return the colour for what is drawn on it
    static QColor drawSelection(QPainter& painter, const QRect& row, const QPalette& palette, bool hasFocus);
    /// Draws emoji and text of such a row. @return whether the text was cut off
    static bool drawRow(QPainter& painter, const QRect& row, const QString& emoji, const QString& text,
                        const Style& style);

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
};
