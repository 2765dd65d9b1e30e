#pragma once

#include <QListView>
#include <QPoint>

#include <functional>

/// The list of people: a list view of one column that opens rows by Return, Enter or Space, and also reports
/// clicks beside the rows.
///
/// Rows are numbered from 0; -1 means no row.
class RosterTableView : public QListView {
    Q_OBJECT

public:
    explicit RosterTableView(QWidget* parent = nullptr);

    std::function<void()> onActivate;
    /// Called for a click with the left button, or a double-click, on a row or beside the rows. The second click
    /// of a double-click is not reported as a click.
    std::function<void(int row)> onClick;
    std::function<void(int row)> onDoubleClick;
    /// Called when the user asks for the menu of a row; with the keyboard, the row is -1.
    std::function<void(int row, QPoint globalPosition)> onContextMenu;
    /// Called when the key "Up" was pressed and there is no row further up.
    std::function<void()> onLeaveUpwards;

    /// The row that is selected, or -1.
    int selectedRow() const;
    /// Selects the row; with -1, none.
    void selectRow(int row);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    bool isClick = false;  // between the press and the release of a single click
};
