#pragma once

#include "InstallerFixture.h"
#include "QtTestSupport/AnswerServer.h"

#include <QByteArray>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A running application in a bundle that updates itself from a server of the test, with the real coordinator,
/// network, unpacking, tool and installer service.
class UpdateAppFixture : public InstallerFixture {
public:
    ~UpdateAppFixture() override;

protected:
    UpdateAppFixture();

    /// Makes bundle 1.0.0, signed, and starts a bus that knows the bundle's service.
    void makeCurrent();
    /// @param user  the user whose process it is; absent: the test's
    /// @param installerMs  how long the application waits for the installer
    /// @return the application's process; the last one is `application`
    pid_t startUpdateApp(std::optional<uid_t> user = {}, int installerMs = 600'000);
    void start() {
        makeCurrent();
        startUpdateApp();
    }
    void tell(const std::string& command) const;

    /// What the application has reported since the last call. `linesUntil` waits for a line with this beginning.
    std::vector<std::string> newLines();
    std::vector<std::string> linesUntil(const std::string& beginning);
    /// Has the application look for updates. @return all that it reports up to the outcome, which is the last line
    std::vector<std::string> check();

    /// Makes a bundle with nothing in it but what is needed to look like an application.
    void makeLightBundle(const Path& bundle, const std::string& version) const;
    /// Makes such a bundle at a new place, and signs it as our own.
    Path signedBundle(const std::string& version);
    /// An archive of the bundle, with modes and links.
    QByteArray zipped(const Path& bundle) const;
    /// Serves a manifest of that version, and the archive.
    void publish(const std::string& version, const QByteArray& archive);
    /// Has the application prepare a real update.
    void stageUpdate();

    /// Expects that the application runs as if nothing had happened: its bundle is whole, and nothing is left of what
    /// it began.
    void expectUntouched();
    std::vector<Path> stagingFolders() const;
    Path stagedBundle() const;

    /// Has the tool of the current bundle wait whenever `holdTool` was called. Call it before the bundle is signed.
    void gateTool() const;
    void holdTool() const;
    void releaseTool();
    bool isToolAsked() const { return std::filesystem::exists(folder.path / "asked"); }

    Path work = folder.path / "work";
    Path temporary = work / "tmp";
    Path making = folder.path / "making";
    std::map<std::string, AnswerServer::Answer> answers;  // by path
    AnswerServer server{[this](QTcpSocket& client, const QByteArray& request) { answer(client, request); }};

private:
    void answer(QTcpSocket& client, const QByteArray& request);

    int commands = -1;  // the running application's input
    std::size_t linesRead = 0;
};
