#pragma once

#include "DesktopKit/UpdateState.h"
#include "DesktopViews/UpdateToast.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "VimbleKit/Person.h"
#include "VimbleKit/State.h"

#include <QPoint>
#include <QWidget>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class AppUpdater;
class ElidedLabel;
class Kit;
class QAction;
class QFrame;
class QLabel;
class QMenu;
class RoomRow;
class RosterModel;
class RosterTableView;
class Spinner;
class StatusPopUp;

/// Told when the user opens a conversation from the list.
class RosterVCDelegate {
public:
    /// @param person  holds for the call only
    virtual void openConversation(const Person& person) = 0;

protected:
    ~RosterVCDelegate() = default;
};

/// The list of who is online, with the user's own name, emoji and status above it, and the row of the
/// room between the two.
///
/// The status is for the eye alone: nothing is kept or sent. Children are found under the names of the
/// fields that hold them. Main thread only.
class RosterVC : public QWidget, public SignalTarget {
    Q_OBJECT

public:
    struct LocalState {
        using StateType = State;
        LocalState() = default;
        explicit LocalState(const State* state);

        bool isOnline = false;
        std::vector<Person> roster;  // those who are online, by display name and key
        std::optional<Person> user;

        bool operator==(const LocalState&) const = default;
    };

    /// What is shown of updates.
    struct LocalUpdateState {
        using StateType = UpdateState;
        LocalUpdateState() = default;
        explicit LocalUpdateState(const UpdateState* state);

        std::optional<std::string> readyVersion;
        std::optional<UpdateToast::Message> toast;  // how the user's check stands

        bool operator==(const LocalUpdateState&) const = default;
    };

    explicit RosterVC(Kit& kit, QWidget* parent = nullptr);
    ~RosterVC() override;

    void setDelegate(Weak<RosterVCDelegate> newDelegate) { delegate = newDelegate; }
    /// What opens the room's window.
    void setOpenRoom(std::function<void()> newOpenRoom) { openRoom = std::move(newOpenRoom); }
    /// Whether the room is on the screen.
    void setRoomOpen(bool isOpen);
    /// Shows what that updater tells, in bars at the bottom, and asks it for what the user wants. Once.
    /// @param updater, loop  must outlive the view
    void observeUpdates(AppUpdater& updater, MainLoop& loop);
    /// Says why no link comes about, until there is one. At most 300 characters of it are shown.
    void showTrouble(const std::string& text);

protected:
    void changeEvent(QEvent* event) override;

private:
    void buildHeader();
    void buildList(Kit& kit);
    void applyLook();
    void apply(const LocalState& newState);
    void apply(const LocalUpdateState& newState);
    void fitTrouble();
    void transitionOnline();
    void transitionOffline();
    void reload();

    void statusDropdownHit();
    void tableRowHit(int clickedRow);
    void tableRowDoubleClick(int clickedRow);
    /// @param row  -1 means the selected row
    void openRow(int row);
    void showContextMenu(int clickedRow, QPoint globalPosition);
    void menuNeedsUpdate();
    void copyPublicKeyHit();

    Weak<RosterVCDelegate> delegate;
    std::function<void()> openRoom;
    LocalState state;

    ElidedLabel* meNameLabel;
    ElidedLabel* meEmojiLabel;
    StatusPopUp* meStatusDropdown;
    Spinner* spinner;
    QFrame* divider;
    RoomRow* roomRow;
    QLabel* troubleLabel;
    RosterTableView* table;
    RosterModel* model;
    UpdateToast* readyUpdateToast = nullptr;  // both only where there is an updater
    UpdateToast* statusToast = nullptr;
    QWidget* toastGround;  // as high as the list must end above the bar that stays
    QMenu* context;
    QAction* contextCopy;

    int contextRow = -1;        // the clicked row of the menu that is open
    std::string contextKey;     // whose row the menu is for; empty for nobody
    std::string deselectedKey;  // whom the last click, beside the rows, deselected; empty for nobody
};
