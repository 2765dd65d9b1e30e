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
    AppUpdater* updater = nullptr;  // started by the application; null: no updates are offered
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

    /// Does everything up to the first window. @return false if the identity can't be read: the user has been told,
    /// and the program must end
    bool applicationWillFinishLaunching();
    /// Shows the first window.
    void applicationDidFinishLaunching();
    /// Brings the People window forward, whatever the links say: they are not read.
    void openUrls(const QStringList& urls, const ActivationToken& token);
    /// Called when the user has started the program again.
    void activate(const ActivationToken& token);
    /// Called when one of our windows becomes active: takes our notifications off the desktop.
    void applicationDidBecomeActive();
    /// Notes which windows are open, so that the next run opens them again. After this, windows may be closed, none
    /// comes forward any more, and the user gets no more notifications.
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

    /// Shows a failure below the engine in the People window, such as why there is no link.
    void showTrouble(const std::string& text);

    RosterWindow& rosterWindow() const;
    ConsoleWindow& consoleWindow() const;
    RoomWindow& roomWindow() const;
    /// The windows of talks.
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
    std::vector<QMainWindow*> adopted;  // the living ones: each is removed when it is destroyed
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
