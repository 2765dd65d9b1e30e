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

/// Ann at a desk with Vimble in a bundle of her own, and whoever makes Vimble. Bob is at a terminal; both are listed.
///
/// The bundle's programs, the installer service, the session bus that starts it, and the tool that judges signatures are
/// the real ones.
class DesktopUpdateFixture : public testing::Test {
public:
    ~DesktopUpdateFixture() override;

protected:
    using Path = std::filesystem::path;
    using Layout = Publisher::Layout;
    static constexpr const char* serviceName = "zorvane.Vimble.UpdateKitInstallerXPC";

    DesktopUpdateFixture();

    /// Where Ann has put her Vimble. A blank, since users have them.
    Path bundle() const { return programs / "Vimble.app"; }
    /// Puts a signed bundle there.
    void install(const std::string& version, const std::string& manifestUrl, Layout layout = Layout::lean) const;
    /// The same, with a tool for signatures that waits while `holdTool` has it wait.
    void installWithHeldTool(const std::string& version, const std::string& manifestUrl) const;
    void holdTool() const;
    /// Waits until the tool does. @return whether that came to be
    bool isToolHeld();
    void letToolGo();

    /// How the program in the bundle is started at Ann's desk.
    Process::Start bundleStart() const;
    /// Starts it, and waits until Bob is seen.
    void start();

    /// Chooses "Check for Updates…" in the menu.
    void checkForUpdates();
    /// Waits until the bar offers that version.
    void seesBar(const std::string& version);
    bool hasBar();
    void clickUpdate() { ann->click("People", "Update", "push button"); }

    /// The processes that run the program in the bundle.
    std::vector<pid_t> running() const;
    /// Waits for the only process in the bundle, other than that one.
    pid_t successorOf(pid_t old);
    static std::vector<std::string> argumentsOf(pid_t process);
    /// Whether a process has ended, though perhaps nobody has taken note of it.
    static bool hasEnded(pid_t process);
    /// Presses Ctrl+Q, in what the test has not started itself.
    void quitSuccessor(pid_t process);

    /// The lines of a log that hold a text.
    static std::vector<std::string> lines(const std::string& log, const std::string& part);
    /// Fails unless each text stands in the log, behind the one before.
    static void expectInOrder(const std::string& log, const std::vector<std::string>& parts);
    std::vector<std::string> namesIn(const Path& folder) const;
    /// What is being prepared; empty if nothing is.
    std::vector<std::string> staged() const;
    /// The only bundle that is.
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
    /// With the secret key where nearly everybody has it. No passphrase comes from the environment: the program takes it
    /// out of there at its start, and so its successor has none.
    Process::Start withKeyring(Process::Start start) const;

    std::optional<Keyring> keyring;
    int heldTool = -1;  // our end of its pipe
};
