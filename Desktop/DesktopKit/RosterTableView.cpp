#include "DesktopKit/RosterTableView.h"

#include <QContextMenuEvent>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMouseEvent>

#include <algorithm>

namespace {

bool opensRow(const QKeyEvent& event) {
    if (event.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return false;
    const QString text = event.text();
    return text == QLatin1String(" ") || text == QLatin1String("\r") || text == QLatin1String("\n");
}

}  // namespace

RosterTableView::RosterTableView(QWidget* parent) : QListView(parent) {
    setFrameShape(QFrame::NoFrame);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // All rows have one height, so that the view need not measure a long list.
    setUniformItemSizes(true);
    setAccessibleName(QStringLiteral("People"));
}

int RosterTableView::selectedRow() const {
    const QModelIndexList rows = selectionModel() ? selectionModel()->selectedRows() : QModelIndexList();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void RosterTableView::selectRow(int row) {
    if (!selectionModel()) return;
    if (row < 0)
        clearSelection();
    else
        selectionModel()->setCurrentIndex(model()->index(row, 0), QItemSelectionModel::ClearAndSelect);
}

void RosterTableView::keyPressEvent(QKeyEvent* event) {
    if (opensRow(*event)) {
        if (onActivate) onActivate();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Up && selectedRow() <= 0 && onLeaveUpwards) {
        onLeaveUpwards();
        event->accept();
        return;
    }
    // A list that has just got the focus has a current row that isn't selected. Let the first "Down" select
    // it: the toolkit would skip it.
    if (event->key() == Qt::Key_Down && selectedRow() < 0 && model()->rowCount() > 0) {
        selectRow(std::max(0, currentIndex().row()));
        event->accept();
        return;
    }
    QListView::keyPressEvent(event);
}

void RosterTableView::mousePressEvent(QMouseEvent* event) {
    isClick = event->button() == Qt::LeftButton;
    // Keep a press beside the rows from the base class, which would deselect at once, with any button.
    if (indexAt(event->pos()).isValid())
        QListView::mousePressEvent(event);
    else
        event->accept();
}

void RosterTableView::mouseReleaseEvent(QMouseEvent* event) {
    QListView::mouseReleaseEvent(event);
    if (!isClick || event->button() != Qt::LeftButton) return;
    isClick = false;
    if (onClick) onClick(indexAt(event->pos()).row());
}

void RosterTableView::mouseDoubleClickEvent(QMouseEvent* event) {
    QListView::mouseDoubleClickEvent(event);
    isClick = false;  // after the base class, which may call `mousePressEvent`
    if (event->button() == Qt::LeftButton && onDoubleClick) onDoubleClick(indexAt(event->pos()).row());
}

void RosterTableView::contextMenuEvent(QContextMenuEvent* event) {
    if (!onContextMenu) return;
    if (event->reason() == QContextMenuEvent::Keyboard) {
        const QModelIndex row = model()->index(selectedRow(), 0);
        const QPoint place = row.isValid() ? visualRect(row).center() : QPoint(0, 0);
        onContextMenu(-1, viewport()->mapToGlobal(place));
    } else {
        onContextMenu(indexAt(event->pos()).row(), event->globalPos());
    }
    event->accept();
}
