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
    /// How long the end waits for a new key to be written. What takes longer waits for a user, at a prompt, or for a
    /// service that is not going to answer; either way the old key is there.
    static constexpr std::chrono::seconds keyTime{5};
    /// How long it waits for a picture that is being read, for nobody any more: it may lie on a disk that does not
    /// answer.
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

    /// Begins, has the loop turn until the program is to end, and ends.
    /// @param turnLoop  @return the exit status that the loop was left with
    /// @throws std::exception  why the program could not start; destroy it before the user is told
    Ending run(const std::function<int()>& turnLoop);

    /// Everything up to the first window, and to being found by others. @return the exit status if the program is to
    /// end there, of which the user knows; do not call `end` then
    /// @throws std::exception  as `run`
    std::optional<int> begin();

    /// Takes the windows down and saves what is to be remembered. Only behind a `begin` that went through, once the
    /// loop has been left.
    Ending end(int status);

private:
    class EndpointWatch;
    enum class Phase { running, ending, left };  // left: the loop

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
    bool isAttended = true;  // there is somebody to close a dialog
};
