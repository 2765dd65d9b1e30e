#pragma once

#include "AttentionKit/NotificationCenter.h"
#include "AttentionKit/Notifier.h"
#include "AttentionKit/SoundPlayer.h"
#include "DesktopKit/AppUpdater.h"
#include "DesktopKit/ChatterWindows.h"
#include "DesktopKit/ConsoleWindow.h"
#include "DesktopKit/MainMenu.h"
#include "DesktopKit/PrefsWindow.h"
#include "DesktopKit/RoomWindow.h"
#include "DesktopKit/RosterWindow.h"
#include "DesktopKit/TrayMenu.h"
#include "DesktopKit/WindowAttention.h"
#include "DesktopKit/WindowRestoration.h"
#include "PlatformDesktop/WindowActivation.h"
#include "StateKit/Host.h"
#include "StateKit/Lifecycle.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/UserDefaults.h"
#include "StateKit/Worker.h"
#include "VimbleKit/KeyAccess.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/Kit.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QMenu>
#include <QObject>
#include <QStringList>

/// What the application needs of the machine. All references must outlive it.
struct AppEnvironment {
    MainLoop& loop;
    SecretStore& secrets;
    Worker& worker;                         // asks the secret store once there are windows
    std::shared_ptr<Worker> pictureWorker;  // looks through pictures of paper keys; its owner holds it longer
    std::function<Kit&()> kit;              // the first call starts the engine
    const Host& host;
    std::filesystem::path folder;  // the application's own
    UserDefaults& userDefaults;
    Lifecycle& lifecycle;
    NotificationCenter& notifications;
    SoundPlayer& sounds;
    /// Has the desktop mark a window as wanting to be looked at, until it is.
    std::function<void(QWidget& window)> alert;
    /// Shows a window and gives it the keyboard. The token is what the desktop gave to whoever asked for
    /// that; empty for a command of the user's in one of our own windows.
    std::function<void(QWidget& window, const ActivationToken& token)> bringForward;
    std::function<void()> quit;     // begins the end of the program
    AppUpdater* updater = nullptr;  // which this starts; null: no word of updates
};

/// A place for debugging aids.
class AppDebug {};

/// The application: checks that the identity can be read, builds the windows that live as long as it, in
/// a fixed order, and carries the commands of the menu. What stands behind the windows is the engine's.
///
/// Closing the last window does not end the program. Where there is no tray icon to bring it back, that
/// window is minimised instead.
///
/// Main thread only. One at a time; must not outlive the QApplication, nor the session.
class App : public QObject, public SignalTarget, public RosterWindowDelegate {
public:
    explicit App(AppEnvironment environment);
    ~App() override;

    /// Everything up to the first window. @return false if the identity can't be read, of which the user
    /// has been told then: the program is to end
    bool applicationWillFinishLaunching();
    /// The first window comes to the screen.
    void applicationDidFinishLaunching();
    /// Links, which are not read: whatever they say, the People window comes forward.
    void openUrls(const QStringList& urls, const ActivationToken& token);
    /// Somebody started the program again.
    void activate(const ActivationToken& token);
    /// The user has turned to one of the windows: what the desktop still shows of us goes.
    void applicationDidBecomeActive();
    /// Notes which windows are open, as they are to come back. Behind this, windows may be closed, none comes
    /// forward any more, and the user is told of nothing more.
    void applicationWillTerminate();

    void orderFrontPreferences();
    void checkForUpdates();
    void disconnect();
    void toggleRosterWindow();
    void toggleConsoleWindow();
    void toggleRoomWindow();
    void showRosterWindow(const ActivationToken& token = {});
    void openRoom();
    void showAbout();

    void openConversation(const Person& person) override;

    /// What goes wrong below the engine, such as why no link comes about: for the People window to tell.
    void showTrouble(const std::string& text);

    RosterWindow& rosterWindow() const;
    ConsoleWindow& consoleWindow() const;
    RoomWindow& roomWindow() const;
    /// Those of talks.
    ChatterWindows& chatterWindows() const;
    /// Made at the first use.
    PrefsWindow& prefsWindow();
    Notifier& notifier() const;

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    void adopt(QMainWindow& window, const std::string& identifier, const std::string& withKey = {});
    void restoreWindows();
    void openConversation(const std::string& key);
    void toggle(QWidget& window);
    void showForward(QWidget& window, const ActivationToken& token = {});
    bool isLastOpen(const QWidget& window) const;
    void updateStateChanged(const UpdateState& state);
    MainMenu::Commands commands();
    std::vector<MainMenu::Talk> talks();
    MainMenu::Look look() const;

    const AppEnvironment environment;
    AppDebug appDebug;
    std::vector<QMainWindow*> adopted;  // those that live; each leaves as it dies
    std::unique_ptr<RosterWindow> _rosterWindow;
    std::unique_ptr<ConsoleWindow> _consoleWindow;
    std::unique_ptr<RoomWindow> _roomWindow;
    std::unique_ptr<WindowAttention> attention;
    std::unique_ptr<Notifier> _notifier;
    std::optional<KeyAccess> keys;
    std::unique_ptr<PrefsWindow> _prefsWindow;
    std::unique_ptr<WindowRestoration> restoration;
    std::unique_ptr<MainMenu> menu;
    std::unique_ptr<QMenu> trayContents;
    std::unique_ptr<ChatterWindows> _chatterWindows;
    std::unique_ptr<TrayMenu> tray;
    bool isEnding = false;
};
