#pragma once

#include "StateKit/SignalTarget.h"
#include "VimbleKit/State.h"

#include <QAbstractButton>

#include <cstdint>
#include <functional>

class Kit;

/// The row that opens the room. It stands above the list of people and looks like its rows; while the room is
/// closed and has unread messages of others, it is bold and shows their number.
///
/// A double-click opens the room, and so do Return, Enter and Space while the row has the focus. Main thread
/// only.
class RoomRow : public QAbstractButton, public SignalTarget {
    Q_OBJECT

public:
    struct LocalState {
        using StateType = State;
        LocalState() = default;
        explicit LocalState(const State* state);

        std::int64_t unread = 0;  // messages of others; counted up to 100, among the last 1000 messages

        bool operator==(const LocalState&) const = default;
    };

    explicit RoomRow(Kit& kit, QWidget* parent = nullptr);

    /// Says whether the room is on the screen: messages that arrive then count as seen.
    void setRoomOpen(bool isOpen);

    /// Called when the key "Down" was pressed.
    std::function<void()> onLeaveDownwards;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void apply(const LocalState& newState);
    void showCount();
    std::int64_t shownCount() const { return isRoomOpen ? 0 : state.unread; }

    LocalState state;
    bool isRoomOpen = false;
};
