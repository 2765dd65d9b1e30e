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

/// Is told when the user opens a conversation from the list.
class RosterVCDelegate {
public:
    /// @param person  valid during the call only
    virtual void openConversation(const Person& person) = 0;

protected:
    ~RosterVCDelegate() = default;
};

/// The list of people who are online, with the user's own name, emoji and status above it, and the row of the
/// room between the two.
///
/// The status is only shown: it is neither stored nor sent. Each child widget's object name is the name of the
/// field that holds it. Main thread only.
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

    /// What the list shows of updates.
    struct LocalUpdateState {
        using StateType = UpdateState;
        LocalUpdateState() = default;
        explicit LocalUpdateState(const UpdateState* state);

        std::optional<std::string> readyVersion;
        std::optional<UpdateToast::Message> toast;  // the state of the user's check

        bool operator==(const LocalUpdateState&) const = default;
    };

    explicit RosterVC(Kit& kit, QWidget* parent = nullptr);
    ~RosterVC() override;

    void setDelegate(Weak<RosterVCDelegate> newDelegate) { delegate = newDelegate; }
    /// Sets what opens the room's window.
    void setOpenRoom(std::function<void()> newOpenRoom) { openRoom = std::move(newOpenRoom); }
    /// Says whether the room is on the screen.
    void setRoomOpen(bool isOpen);
    /// Shows the updater's state in bars at the bottom, and passes on to it what the user wants. Call it once.
    /// @param updater, loop  must outlive the view
    void observeUpdates(AppUpdater& updater, MainLoop& loop);
    /// Shows why no link can be made, until there is one. At most 300 characters of the text are shown.
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
    UpdateToast* readyUpdateToast = nullptr;  // both only after `observeUpdates`
    UpdateToast* statusToast = nullptr;
    QWidget* toastGround;  // keeps the end of the list above the bar that stays
    QMenu* context;
    QAction* contextCopy;

    int contextRow = -1;        // the clicked row of the menu that is open
    std::string contextKey;     // the person whose row the menu is for; empty: nobody
    std::string deselectedKey;  // whom the last click beside the rows deselected; empty: nobody
};
