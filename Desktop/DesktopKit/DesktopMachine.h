#pragma once

#include "AttentionKit/NotificationCenter.h"
#include "AttentionKit/SoundPlayer.h"
#include "PlatformCore/ApplicationFolder.h"
#include "PlatformCore/SealedFileStore.h"
#include "PlatformDesktop/SingleInstance.h"
#include "PlatformDesktop/WindowActivation.h"
#include "StateKit/Host.h"
#include "StateKit/Internets.h"
#include "StateKit/Lifecycle.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Transport.h"
#include "StateKit/UserDefaults.h"
#include "StateKit/Worker.h"
#include "Text/Url.h"
#include "TweetNacl/SealedBox.h"
#include "UpdateKit/UpdateKit.h"
#include "VimbleKit/SecretStore.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include <QString>
#include <QStringList>
#include <QWidget>

/// What the program uses of the machine once the user's key can be read. A start that only brings a running program
/// forward, or that the user cancels, makes none of it.
///
/// All references live as long as this. Main thread only.
class DesktopServices {
public:
    virtual ~DesktopServices() = default;

    virtual const Host& host() = 0;
    virtual UserDefaults& userDefaults() = 0;
    virtual Lifecycle& lifecycle() = 0;
    virtual SoundPlayer& sounds() = 0;
    virtual std::optional<std::string> environmentVariable(const char* name) = 0;

    // ---- the network

    /// Not started yet.
    virtual Internets& internets() = 0;
    /// Says which server is in use: one on this machine needs no network.
    virtual void setEndpointUrl(const std::string& url) = 0;
    virtual Transport& transport() = 0;
    /// `tell` gets one line for each failure below the engine, such as a link that can't be made.
    virtual void onTrouble(std::function<void(const std::string&)> tell) = 0;
    /// Calls `done`, later, when all that was sent has been read by the other end, or `atMost` has passed.
    virtual void drain(Seconds atMost, std::function<void()> done) = 0;

    // ---- notifications, and windows that want to be looked at

    virtual NotificationCenter& notifications() = 0;
    /// `activated` is called when the user clicks a notification.
    virtual void onNotificationActivated(std::function<void(const ActivationToken&)> activated) = 0;
    /// Has the desktop mark a window as wanting to be looked at, until it is.
    virtual void markWindow(QWidget& window) = 0;

    // ---- threads

    /// The thread on which the secret store is asked.
    virtual Worker& secretWorker() = 0;
    /// The thread that looks through pictures. At its end it drops the work that has not begun.
    virtual std::shared_ptr<Worker> pictureWorker() = 0;

    // ---- the end, as it comes from outside

    /// `came` is called when a signal asks the program to end. An empty one restores the signals' earlier effect.
    virtual void onSignal(std::function<void()> came) = 0;
    /// `ending` is called when the user's session is about to end; there may be no further notice.
    virtual void onSessionEnding(std::function<void()> ending) = 0;

    // ---- updates

    /// Starts the updater. It must die before this.
    virtual std::unique_ptr<UpdateKit> makeUpdateKit(const Url& manifestUrl) = 0;
    /// Tells the desktop and the session bus where this program lies, on another thread.
    /// @return ready when that is done; not valid if the program lies in no bundle, and so has nothing to register
    virtual std::future<void> registerProgram() = 0;
};

/// What the program needs of the machine from its start: the main loop, the user, the program that may run already,
/// and the keeper of secrets. A test replaces it by a double to begin and end the whole program.
///
/// Must outlive the program. Main thread only.
class DesktopMachine {
public:
    virtual ~DesktopMachine() = default;

    virtual MainLoop& loop() = 0;
    /// Ends the main loop and the loops of open dialogs. Has no effect on a loop that does not turn yet.
    virtual void leaveLoop() = 0;

    // ---- the user

    /// Writes a line to standard error.
    virtual void complain(const std::string& text) = 0;
    /// Also shows the text in a dialog, and returns when the user has closed that.
    /// @param more  below the text; may be empty
    virtual void alert(const std::string& text, const std::string& more) = 0;
    /// Shows a window and gives it the keyboard.
    virtual void bringForward(QWidget& window, const ActivationToken& token) = 0;

    // ---- one program for each user and folder: see `SingleInstance`

    virtual SingleInstance::Outcome claim(const QStringList& urls, const ActivationToken& token,
                                          std::chrono::milliseconds within) = 0;
    virtual QString claimError() = 0;
    virtual void setHandlers(SingleInstance::Handlers handlers) = 0;
    virtual void beginEnding() = 0;

    // ---- the keeper of the secret key: see `UserSecretsEnvironment`

    virtual std::unique_ptr<SecretStore> makeSecretStore(const std::optional<std::filesystem::path>& file,
                                                         SealedFileStore::AskPassphrase ask) = 0;
    virtual std::optional<Passphrase> askPassphrase(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                                    bool wasWrong) = 0;

    /// Call it only once.
    /// @param folder  must outlive the services
    virtual std::unique_ptr<DesktopServices> makeServices(const ApplicationFolder& folder) = 0;
};
