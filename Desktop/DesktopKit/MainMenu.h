#pragma once

#include <functional>
#include <vector>

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QWidget>

/// The menu bar that all windows carry, and its shortcuts.
///
/// There is one set of actions; each window gets a bar of its own that shows them. The application says what
/// an action does, but the actions on text (copy, paste, select all) go to the widget that has the keyboard,
/// if it has them. Make it after the QApplication; it must outlive the windows' use of their bars.
class MainMenu : public QObject {
public:
    /// A talk with one person, as the menu lists it.
    struct Talk {
        QString title;  // safe to be shown
        std::function<void()> open;
    };

    /// What each command does; a command that is not set is shown but can't be chosen.
    struct Commands {
        std::function<void()> orderFrontPreferences;
        std::function<void()> checkForUpdates;
        std::function<void()> disconnect;
        std::function<void()> toggleRosterWindow;
        std::function<void()> toggleConsoleWindow;
        std::function<void()> toggleRoomWindow;
        std::function<void()> close;
        std::function<void()> quit;
        std::function<void()> about;
        /// All talks so far, in the order of the menu, also those with people who are offline, whom the People
        /// window leaves out. Called whenever the menu opens.
        std::function<std::vector<Talk>()> talks;
    };

    /// What decides how the commands look: which windows are on the screen, whether it is configured where to look
    /// for updates, and whether there is a link to disconnect.
    struct Look {
        bool isRosterVisible = false;
        bool isConsoleVisible = false;
        bool isRoomVisible = false;
        bool canCheckForUpdates = false;
        bool canDisconnect = false;
    };

    MainMenu(Commands commands, std::function<Look()> look);

    /// Gives the window its menu bar.
    void attach(QMainWindow& window);
    /// Makes the shortcuts work in a window without a menu bar.
    void attachShortcuts(QWidget& window);
    /// Adds the commands that make sense without a window.
    void fill(QMenu& menu);

    /// Updates ticks and enabled states from `Look`. The menus also do this whenever they open.
    void refresh();

private:
    QAction* add(const QString& text, const QKeySequence& shortcut, const std::function<void()>& command);
    QAction* addEditing(const QString& text, const QKeySequence& shortcut, const char* operation);
    void refreshEditing();
    void addTalks(QMenu& menu);

    std::function<Look()> look;
    std::function<std::vector<Talk>()> talks;
    QAction* about;
    QAction* preferences;
    QAction* updates;
    QAction* disconnection;
    QAction* close;
    QAction* quit;
    QList<QAction*> editing;
    QPointer<QWidget> edited;  // the widget that has the keyboard, or had it before the menu bar took it
    QAction* people;
    QAction* console;
    QAction* room;
};
