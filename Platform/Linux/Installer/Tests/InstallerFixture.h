#pragma once

#include "QtTestSupport/PrivateBus.h"
#include "SigningSupport/TestIdentity.h"
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

/// The result of a request.
struct InstallResult {
    bool isOver = false;
    std::optional<InstallerClientError> error;  // nothing: the update was installed, once the request is over
};

/// A bus that starts the real installer service out of a bundle, which has the real tool in it too; an update of
/// that bundle, by the same identity; and the running application.
class InstallerFixture : public testing::Test {
public:
    ~InstallerFixture() override;

protected:
    using Path = std::filesystem::path;

    static constexpr const char* serviceName = "zorvane.Vimble.UpdateKitInstallerXPC";
    static constexpr std::int32_t otherUser = 65534;

    InstallerFixture();

    /// Makes both bundles, unsigned.
    void makeBundles();
    void makeBundle(const Path& bundle, const std::string& version) const;
    void sign(const Path& bundle, const TestChain& chain) const;
    void sealAdhoc(const Path& bundle) const;
    std::string version(const Path& bundle) const;
    /// Whether the bundle's seal holds, by the real tool.
    bool isSealed(const Path& bundle) const;

    /// Starts the bus, and has it know the service of the current bundle.
    void startBus(std::optional<uid_t> user = {});
    /// @param manner  "polite" or "stubborn"
    void startApplication(const std::string& manner = "polite", std::optional<uid_t> user = {});
    /// Makes bundles, signs them with the usual identity, and starts the bus and the application.
    void startAll(const std::string& manner = "polite");
    void startAllWithSlowTool();

    /// Has the tool of the current bundle wait until it is let go. Call it before the bundle is signed.
    void slowTool() const;
    void waitForTool();
    void letToolGo();

    InstallerRequest request() const { return {staged, current, application}; }
    std::shared_ptr<InstallResult> ask(const InstallerRequest& request);
    /// Asks, and waits for the answer. @return the error; nothing: installed
    std::optional<InstallerClientError> install(const InstallerRequest& request);

    /// Whether the application, which is the test's child, has not ended yet.
    bool isApplicationRunning();
    /// Waits for the end of the application. @return the signal that ended it; 0 if none did
    int signalThatEndedIt();
    /// Waits for the application that is started after ours. @return what that one reports
    std::vector<std::string> reportOfNewOne();

    /// Expects that everything is as it was before, and that the log says why.
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
    std::optional<int> status;  // of the application's end
    int letGo = -1;             // a pipe for the tool
};
