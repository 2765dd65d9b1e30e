#pragma once

#include "PrivateBus.h"
#include "TestIdentity.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/InstallerRequest.h"
#include "UpdateKit/Outcome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What came of a request.
struct InstallResult {
    bool isOver = false;
    std::optional<InstallerClientError> error;  // nothing, once it is over: installed
};

/// A bus that starts the real installer service, out of a bundle in which it lies, with the real tool beside it;
/// an update of that bundle, by the same identity; and the application, running.
class InstallerFixture : public testing::Test {
public:
    ~InstallerFixture() override;

protected:
    using Path = std::filesystem::path;

    static constexpr const char* serviceName = "zorvane.Vimble.UpdateKitInstallerXPC";
    static constexpr std::int32_t otherUser = 65534;

    InstallerFixture();

    /// Both bundles, unsigned.
    void makeBundles();
    void makeBundle(const Path& bundle, const std::string& version) const;
    void sign(const Path& bundle, const TestChain& chain) const;
    void sealAdhoc(const Path& bundle) const;
    std::string version(const Path& bundle) const;
    /// Whether its seal holds, by the real tool.
    bool isSealed(const Path& bundle) const;

    /// Starts the bus, and has it know the service of the current bundle.
    void startBus(std::optional<uid_t> user = {});
    /// @param manner  "polite" or "stubborn"
    void startApplication(const std::string& manner = "polite", std::optional<uid_t> user = {});
    /// Bundles by the usual identity, bus, application.
    void startAll(const std::string& manner = "polite");
    void startAllWithSlowTool();

    /// Has the tool of the current bundle wait until it is let go. Before the bundle is signed.
    void slowTool() const;
    void waitForTool();
    void letToolGo();

    InstallerRequest request() const { return {staged, current, application}; }
    std::shared_ptr<InstallResult> ask(const InstallerRequest& request);
    /// Asks, and waits for the answer. @return the error; nothing: installed
    std::optional<InstallerClientError> install(const InstallerRequest& request);

    /// Whether it runs, by its child's status.
    bool isApplicationRunning();
    /// What ended it.
    int signalThatEndedIt();
    /// What the one that was started after ours tells of itself; waits for it.
    std::vector<std::string> reportOfNewOne();

    /// Everything is as it was before, and the log says why.
    void expectNothingHappened(const std::string& why);
    std::vector<std::string> namesIn(const Path& path) const;

    TemporaryFolder folder;
    Path apps = folder.path / "apps";
    Path downloads = folder.path / "downloads";
    Path reports = folder.path / "reports";
    Path current = apps / "Vimble.app";
    Path staged = downloads / "New.app";
    const TestChain chain = usualChain();
    FakeHost host;
    std::unique_ptr<PrivateBus> bus;
    std::unique_ptr<class XPCInstallerClient> client;
    std::vector<std::shared_ptr<void>> requests;
    std::int32_t application = -1;
    std::optional<int> status;  // of its end
    int letGo = -1;             // a pipe for the tool
};
