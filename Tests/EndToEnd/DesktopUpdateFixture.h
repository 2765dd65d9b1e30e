#pragma once

#include "Desk.h"
#include "Keyring.h"
#include "Publisher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// Ann at a desk, with Vimble in a bundle of her own, and the publisher of Vimble. Bob is at a terminal; both are
/// members of the relay.
///
/// The bundle's programs, the installer service, the session bus that starts it, and the tool that judges signatures
/// are the real ones.
class DesktopUpdateFixture : public testing::Test {
public:
    ~DesktopUpdateFixture() override;

protected:
    using Path = std::filesystem::path;
    using Layout = Publisher::Layout;
    static constexpr const char* serviceName = "zorvane.Vimble.UpdateKitInstallerXPC";

    DesktopUpdateFixture();

    /// Where Ann has put her Vimble. The path has a blank in it, since users' paths have them.
    Path bundle() const { return programs / "Vimble.app"; }
    /// Puts a signed bundle there.
    void install(const std::string& version, const std::string& manifestUrl, Layout layout = Layout::lean) const;
    /// The same, but the bundle's tool for signatures waits from `holdTool` until `letToolGo`.
    void installWithHeldTool(const std::string& version, const std::string& manifestUrl) const;
    void holdTool() const;
    /// Waits until the tool has been started and is waiting. @return whether that happened
    bool isToolHeld();
    void letToolGo();

    /// How the program in the bundle is started at Ann's desk.
    Process::Start bundleStart() const;
    /// Starts it, and waits until Ann sees Bob online.
    void start();

    /// Chooses "Check for Updates…" in the menu.
    void checkForUpdates();
    /// Waits until the bar offers that version.
    void seesBar(const std::string& version);
    bool hasBar();
    void clickUpdate() { ann->click("People", "Update", "push button"); }

    /// The processes that run the program in the bundle.
    std::vector<pid_t> running() const;
    /// Waits until a single process runs from the bundle, and is not `old`. @return it; -1, with a test failure, if
    /// that does not happen
    pid_t successorOf(pid_t old);
    static std::vector<std::string> argumentsOf(pid_t process);
    /// Whether a process has ended, even if its parent has not waited for it yet.
    static bool hasEnded(pid_t process);
    /// Presses Ctrl+Q, and waits for the end of a process that the test has not started itself.
    void quitSuccessor(pid_t process);

    /// The lines of a log that hold a text.
    static std::vector<std::string> lines(const std::string& log, const std::string& part);
    /// Fails unless each text stands in the log, behind the one before.
    static void expectInOrder(const std::string& log, const std::vector<std::string>& parts);
    std::vector<std::string> namesIn(const Path& folder) const;
    /// The names of the staging folders of updates; empty if no update is being prepared.
    std::vector<std::string> staged() const;
    /// The bundle in the only staging folder. Only while there is one.
    Path stagedBundle() const { return stagingFolder() / staged().front() / "extracted" / "Vimble.app"; }

    ChatWorld world;
    Path programs = world.folder.path / "My Programs";
    Publisher publisher{world.folder.path / "publisher"};
    std::string annKey;
    std::unique_ptr<Process> bob;
    std::optional<Desk> ann;

private:
    void admitAnn();
    Path stagingFolder() const;
    Path pipeOfTool() const { return world.folder.path / "tool.pipe"; }
    /// The same start with the secret key in the desktop's keyring, where nearly every user has it. A passphrase in the
    /// environment would not do: the program removes it from there at its start, so its successor would have none.
    Process::Start withKeyring(Process::Start start) const;

    std::optional<Keyring> keyring;
    int heldTool = -1;  // our end of the pipe on which the tool waits
};
