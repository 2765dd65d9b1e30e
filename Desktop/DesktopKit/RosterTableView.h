#pragma once

#include <QListView>
#include <QPoint>

#include <functional>

/// The list of people: a list view of one column that opens rows by Return, Enter or Space, and tells of
/// clicks beside the rows too.
///
/// Rows are numbered from 0; -1 stands for none.
class RosterTableView : public QListView {
    Q_OBJECT

public:
    explicit RosterTableView(QWidget* parent = nullptr);

    std::function<void()> onActivate;
    /// A click with the left button, or a double-click, on a row or on none. The second click of a double
    /// one is not told as a click of its own.
    std::function<void(int row)> onClick;
    std::function<void(int row)> onDoubleClick;
    /// Somebody asks for the menu of a row; with the keyboard, of none.
    std::function<void(int row, QPoint globalPosition)> onContextMenu;
    /// The key "Up" was pressed where there is nothing further up.
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
