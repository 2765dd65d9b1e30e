#pragma once

#include "HiddenScreen.h"
#include "QtTestSupport/PrivateBus.h"

#include "PlatformBundle/StagingFolders.h"
#include "PlatformCore/XPCInstallerClient.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <functional>
#include <optional>

/// A desk with the application's bundle installed: a screen, a session bus that starts the bundle's own installer,
/// a keyring, and a home of its own.
///
/// The bundle is the one that users get, and is signed. Only one desk at a time in a process, since it sets the
/// process's environment variables.
class UpdateDesk {
public:
    /// Takes some seconds.
    /// @throws std::runtime_error  here and below: something could not be started, or did not happen within a minute
    UpdateDesk();
    ~UpdateDesk();
    UpdateDesk(const UpdateDesk&) = delete;
    UpdateDesk& operator=(const UpdateDesk&) = delete;

    /// Starts the installed application. @return the time to the first picture on the screen, in seconds
    double start();

    struct Gap {
        double toFirstPaint = 0;   // from the end of the old process to the first picture of the new one
        double withoutWindow = 0;  // from the old one's last picture, which goes a little before its process ends
    };
    /// Prepares an update, as the application would. Call it before `start`, so that its work does not disturb the
    /// measurement.
    void prepareUpdate();
    /// Makes the installer replace the application while it runs. The new one runs afterwards.
    Gap update();

    /// Asks the application to end, and waits for that.
    void end();

private:
    using Path = std::filesystem::path;

    void makeEnvironment() const;
    void startKeyring();
    /// Runs Qt's loop until the condition holds. @throws std::runtime_error  it does not within a minute
    static void waitFor(const std::function<bool()>& condition, const char* what);

    const TemporaryFolder folder;
    const Path installed = folder.path / "apps" / "Vimble.app";
    const Path release = folder.path / "release" / "Vimble.app";  // what each update is a copy of
    const Path dataFolder = folder.path / "bus" / "data" / "zorvane.Vimble";
    FakeHost host;
    std::optional<HiddenScreen> screen;
    std::optional<PrivateBus> bus;
    std::optional<XPCInstallerClient> client;
    std::optional<StagingFolders> staging;
    Path staged;  // the folder of the prepared update
    pid_t keyring = -1;
    pid_t application = -1;
    bool isChild = false;  // whether the application is a child of this process
};
