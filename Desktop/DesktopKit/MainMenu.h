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
/// There is one set of actions; each window gets a bar of its own that shows them. What an action does is
/// the application's; what concerns text (copy, paste, select all) goes to the widget that has the keyboard,
/// if it can do that. Make it after the QApplication; it must outlive the windows' use of their bars.
class MainMenu : public QObject {
public:
    /// A talk with one person, as the menu lists it.
    struct Talk {
        QString title;  // fit to be shown
        std::function<void()> open;
    };

    /// What each command does; one that is not set is shown and can't be chosen.
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
        /// The talks that there have been, in the order of the menu: also those with people who are away, whom
        /// the list of People leaves out. Asked for whenever the menu opens.
        std::function<std::vector<Talk>()> talks;
    };

    /// How the commands stand: which windows are on the screen, and whether there is a place to look for updates,
    /// or a link to give up.
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
    /// Has the shortcuts work in a window without a menu bar.
    void attachShortcuts(QWidget& window);
    /// Adds the commands that make sense without a window.
    void fill(QMenu& menu);

    /// The window commands tell what is to be seen; asked for whenever a menu opens, too.
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
    QPointer<QWidget> edited;  // has the keyboard, or had it before the menu bar took it
    QAction* people;
    QAction* console;
    QAction* room;
};
