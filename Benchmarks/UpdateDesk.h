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
/// Everything is what users have: the bundle as it is built, signed, and what lies in it. Only one at a time in a
/// process, for it makes the environment its own.
class UpdateDesk {
public:
    /// Takes some seconds.
    /// @throws std::runtime_error  as all of this does where something does not come to be
    UpdateDesk();
    ~UpdateDesk();
    UpdateDesk(const UpdateDesk&) = delete;
    UpdateDesk& operator=(const UpdateDesk&) = delete;

    /// Starts the installed application. @return the time to the first picture on the screen, in seconds
    double start();

    struct Gap {
        double toFirstPaint = 0;   // from the end of the old process to the first picture of the new one
        double withoutWindow = 0;  // from the old one's last picture, which goes a little before its process
    };
    /// Lays an update ready, as the application would; before `start`, since it is work for the machine.
    void prepareUpdate();
    /// Has the installer replace the application while it runs; the new one runs in its place then.
    Gap update();

    /// Has the application end, and waits for that.
    void end();

private:
    using Path = std::filesystem::path;

    void makeEnvironment() const;
    void startKeyring();
    /// Turns Qt's loop meanwhile. @throws std::runtime_error  it does not come to be
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
    Path staged;  // the folder of the update that lies ready
    pid_t keyring = -1;
    pid_t application = -1;
    bool isChild = false;  // whether the application is this process's own
};
