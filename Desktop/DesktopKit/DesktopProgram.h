#pragma once

#include "DesktopKit/App.h"
#include "DesktopKit/AppUpdater.h"
#include "DesktopKit/DesktopMachine.h"
#include "DesktopKit/QuitRequests.h"
#include "DesktopKit/RememberedFolder.h"
#include "DesktopKit/UserSecrets.h"
#include "PlatformDesktop/WindowActivation.h"
#include "TweetNacl/SealedBox.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/Kit.h"

#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// How the program was started.
struct DesktopStart {
    std::optional<std::filesystem::path> dataDir;
    std::optional<std::filesystem::path> secretFile;
    std::vector<std::string> urls;
    std::optional<Endpoint> server;        // to be connected to; nothing: the last one in use
    std::optional<Passphrase> passphrase;  // for the secret file
    ActivationToken token;
    FolderAtStart folder;  // of `dataDir`
};

/// The desktop program from its start to its end: it puts the engine, the windows and the machine together, and takes
/// them apart again in the order in which they need each other.
///
/// Main thread only, with a QApplication, and one at a time. It gives the folder back when it is destroyed.
class DesktopProgram {
public:
    /// How long the end waits for the network to take what was said.
    static constexpr Seconds drainTime = 3;
    /// How long a program that already has the folder waits for the name on the bus.
    static constexpr std::chrono::milliseconds nameTime{500};
    /// How long the end waits for a new key to be written. A store that takes longer is waiting at a prompt, or for a
    /// service that will not answer; either way the old key is still stored.
    static constexpr std::chrono::seconds keyTime{5};
    /// How long the end waits for a picture that is still being read. Nobody needs the picture any more, and its disk
    /// may never answer.
    static constexpr std::chrono::seconds pictureTime{1};

    struct Ending {
        int status = 0;
        /// A thread still uses what the destructors would take down: end the process at once, without them.
        bool isThreadBusy = false;
    };

    DesktopProgram(DesktopStart start, DesktopMachine& machine);
    ~DesktopProgram();
    DesktopProgram(const DesktopProgram&) = delete;
    DesktopProgram& operator=(const DesktopProgram&) = delete;

    /// Runs `begin`, then the loop until the program is told to quit, then `end`.
    /// @param turnLoop  @return the exit status that the loop was left with
    /// @throws std::exception  why the program could not start; destroy it before the user is told
    Ending run(const std::function<int()>& turnLoop);

    /// Shows the first window and lets later starts find this program. @return the exit status if the program must
    /// end at once, after the user has been told why; do not call `end` then
    /// @throws std::exception  as `run`
    std::optional<int> begin();

    /// Destroys the windows and saves the state. Call it only after a `begin` that returned nothing, once the loop
    /// has ended.
    Ending end(int status);

private:
    class EndpointWatch;
    enum class Phase { running, ending, left };  // left: the loop was told to stop

    std::optional<int> takePlace();
    void showDialogToLaterStarts();
    void listen();
    void listenNoMore();
    void makeUpdater();
    void watchForTheEnd();
    App& makeApp();
    Kit& startedKit();
    void quit();
    void leave();
    bool save();

    DesktopMachine& machine;
    DesktopStart start;
    // Each of these uses some of those above it, and so must be destroyed before them.
    std::unique_ptr<RememberedFolder> folder;
    std::optional<UserSecrets> secrets;
    std::unique_ptr<DesktopServices> services;
    std::optional<Kit> kit;
    std::unique_ptr<EndpointWatch> endpointWatch;
    std::optional<AppUpdater> updater;
    std::optional<QuitRequests> quitRequests;
    std::optional<App> app;
    std::future<void> registration;
    Phase phase = Phase::running;
    bool isAttended = true;  // a user is there to close a dialog
};
