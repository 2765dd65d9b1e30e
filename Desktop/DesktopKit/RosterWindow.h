#pragma once

#include "DesktopKit/RosterVC.h"
#include "StateKit/SignalTarget.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/State.h"

#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <string>

class AuthVC;
class Kit;
class QMessageBox;
class QStackedWidget;

/// Is told when the user opens a conversation from the main window.
class RosterWindowDelegate {
public:
    /// @param person  valid during the call only
    virtual void openConversation(const Person& person) = 0;

protected:
    ~RosterWindowDelegate() = default;
};

/// The program's main window: the list of people, or the access screen until the user has connected.
///
/// It follows the session while it is hidden; the application shows, hides and places it, and puts the
/// menu bar in. Main thread only.
class RosterWindow : public QMainWindow, public SignalTarget, public RosterVCDelegate {
    Q_OBJECT

public:
    /// The name under which the window is restored and its place remembered; also its object name.
    static constexpr char restorationIdentifier[] = "RosterWindowID";

    struct LocalState {
        using StateType = State;
        LocalState() = default;
        explicit LocalState(const State* state);

        Connection connection = Connection::setup;

        bool operator==(const LocalState&) const = default;
    };

    /// @param kit  must outlive the window
    explicit RosterWindow(Kit& kit);
    ~RosterWindow() override;

    void setDelegate(Weak<RosterWindowDelegate> newDelegate) { delegate = newDelegate; }
    /// Sets what opens the room's window.
    void setOpenRoom(std::function<void()> openRoom);

    /// Shows why no link can be made, until there is one.
    void showTrouble(const std::string& text);

    RosterVC& rosterVC() const { return *_rosterVC; }
    AuthVC& authVC() const { return *_authVC; }
    /// The one of the two that is shown.
    QWidget* content() const;

    void openConversation(const Person& person) override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    void apply(const LocalState& state);
    void setContent(QWidget* wanted);
    void showRefusal();

    Weak<RosterWindowDelegate> delegate;
    QStackedWidget* stack;
    RosterVC* _rosterVC;
    AuthVC* _authVC;
    QPointer<QMessageBox> refusal;  // the sheet that tells of a refused key, while it is open
    bool isRefusalWaiting = false;  // until the window is shown
};
