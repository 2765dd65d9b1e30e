#include "DesktopKit/MainMenu.h"

#include <QApplication>
#include <QMenuBar>
#include <QMetaMethod>

#include <utility>

namespace {

constexpr int longestTitle = 320;  // of a talk, in pixels

/// Whether a widget has that operation without arguments, and the operation would have an effect.
bool canDo(const QWidget* widget, const char* operation) {
    if (widget == nullptr || !widget->isEnabled()) return false;
    const QByteArray signature = QByteArray(operation) + "()";
    if (widget->metaObject()->indexOfMethod(signature) < 0) return false;
    const bool changesText = signature == "paste()" || signature == "cut()";
    return !changesText || !widget->property("readOnly").toBool();
}

}  // namespace

MainMenu::MainMenu(Commands commands, std::function<Look()> look) : look(std::move(look)), talks(commands.talks) {
    about = add(tr("&About Vimble"), {}, commands.about);
    preferences = add(tr("&Preferences…"), QKeySequence(Qt::CTRL | Qt::Key_Comma), commands.orderFrontPreferences);
    updates = add(tr("Check for &Updates…"), {}, commands.checkForUpdates);
    disconnection = add(tr("&Disconnect"), {}, commands.disconnect);
    close = add(tr("&Close Window"), QKeySequence(Qt::CTRL | Qt::Key_W), commands.close);
    quit = add(tr("&Quit Vimble"), QKeySequence(Qt::CTRL | Qt::Key_Q), commands.quit);
    addEditing(tr("Cu&t"), QKeySequence::Cut, "cut");
    addEditing(tr("&Copy"), QKeySequence::Copy, "copy");
    addEditing(tr("&Paste"), QKeySequence::Paste, "paste");
    addEditing(tr("Select &All"), QKeySequence::SelectAll, "selectAll");
    people = add(tr("&People"), QKeySequence(Qt::CTRL | Qt::Key_1), commands.toggleRosterWindow);
    console = add(tr("&Console"), QKeySequence(Qt::CTRL | Qt::Key_2), commands.toggleConsoleWindow);
    room = add(tr("&Room"), QKeySequence(Qt::CTRL | Qt::Key_3), commands.toggleRoomWindow);
    for (QAction* window : {people, console, room}) window->setCheckable(true);
    edited = QApplication::focusWidget();
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        // A menu bar that is opened by the keyboard takes the focus from the text that the commands are for.
        if (qobject_cast<QMenuBar*>(now) == nullptr) edited = now;
        refreshEditing();
    });
    refresh();
}

QAction* MainMenu::add(const QString& text, const QKeySequence& shortcut, const std::function<void()>& command) {
    auto* action = new QAction(text, this);
    action->setShortcut(shortcut);
    action->setEnabled(static_cast<bool>(command));
    // Otherwise a desktop might take an action for its own "Quit" or "Preferences" because of its name.
    action->setMenuRole(QAction::NoRole);
    if (command)
        connect(action, &QAction::triggered, this, [this, command] {
            command();
            // The click has toggled the tick, so set it again by what the windows are.
            refresh();
        });
    return action;
}

QAction* MainMenu::addEditing(const QString& text, const QKeySequence& shortcut, const char* operation) {
    auto* action = new QAction(text, this);
    action->setShortcut(shortcut);
    action->setData(QByteArray(operation));
    connect(action, &QAction::triggered, this, [this, operation] {
        if (canDo(edited, operation)) QMetaObject::invokeMethod(edited, operation);
    });
    editing.append(action);
    return action;
}

void MainMenu::addTalks(QMenu& menu) {
    if (!talks) return;
    QMenu* list = menu.addMenu(tr("&Talks"));
    const auto fillList = [this, list] {
        list->clear();
        for (const Talk& talk : talks()) {
            QString title = list->fontMetrics().elidedText(talk.title, Qt::ElideRight, longestTitle);
            // An "&" in a name must not become a shortcut letter.
            title.replace(QLatin1Char('&'), QStringLiteral("&&"));
            connect(list->addAction(title), &QAction::triggered, this, [open = talk.open] { open(); });
        }
        if (list->isEmpty()) list->addAction(tr("None Yet"))->setEnabled(false);
    };
    connect(list, &QMenu::aboutToShow, this, fillList);
    // A tray shows the old list before the list's own signal comes, so fill it already when its menu opens.
    connect(&menu, &QMenu::aboutToShow, this, fillList);
    fillList();
}

void MainMenu::attach(QMainWindow& window) {
    QMenuBar* bar = window.menuBar();
    QMenu* program = bar->addMenu(tr("&Vimble"));
    program->addActions({about, preferences, updates});
    program->addSeparator();
    program->addAction(disconnection);
    program->addSeparator();
    program->addActions({close, quit});
    QMenu* edit = bar->addMenu(tr("&Edit"));
    edit->addActions(editing);
    QMenu* windows = bar->addMenu(tr("&Window"));
    windows->addActions({people, console, room});
    addTalks(*windows);
    for (QMenu* menu : {program, edit, windows})
        connect(menu, &QMenu::aboutToShow, this, [this] {
            refresh();
            refreshEditing();
        });
}

void MainMenu::attachShortcuts(QWidget& window) {
    // Leave the actions on text out: each text field has them itself.
    window.addActions({preferences, close, quit, people, console, room});
}

void MainMenu::fill(QMenu& menu) {
    menu.addActions({people, room, console});
    addTalks(menu);
    menu.addSeparator();
    menu.addActions({about, preferences, updates, disconnection});
    menu.addSeparator();
    menu.addAction(quit);
    connect(&menu, &QMenu::aboutToShow, this, [this] { refresh(); });
}

void MainMenu::refresh() {
    const Look now = look();
    people->setChecked(now.isRosterVisible);
    console->setChecked(now.isConsoleVisible);
    room->setChecked(now.isRoomVisible);
    updates->setEnabled(now.canCheckForUpdates);
    disconnection->setEnabled(now.canDisconnect);
}

void MainMenu::refreshEditing() {
    for (QAction* action : std::as_const(editing)) action->setEnabled(canDo(edited, action->data().toByteArray()));
}
