#pragma once

#include "../UpdateTests/AnswerServer.h"
#include "InstallerFixture.h"

#include <QByteArray>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A running application that updates itself from a server of the test's, out of a bundle of ours, with the real
/// coordinator, network, unpacking, tool and installer service.
class UpdateAppFixture : public InstallerFixture {
public:
    ~UpdateAppFixture() override;

protected:
    UpdateAppFixture();

    /// Bundle 1.0.0, signed, and with it a bus that starts its service.
    void makeCurrent();
    /// @param user  whose process it is; absent: the test's
    /// @param installerMs  how long it waits for the installer
    /// @return its process; the last one is `application`
    pid_t startUpdateApp(std::optional<uid_t> user = {}, int installerMs = 600'000);
    void start() {
        makeCurrent();
        startUpdateApp();
    }
    void tell(const std::string& command) const;

    /// What the application has reported since the last call, or until a line that begins so came.
    std::vector<std::string> newLines();
    std::vector<std::string> linesUntil(const std::string& beginning);
    /// Has it look for updates. @return all that it reports until it has an outcome, which is the last line
    std::vector<std::string> check();

    /// A bundle with nothing in it but what is needed to look like an application.
    void makeLightBundle(const Path& bundle, const std::string& version) const;
    /// The same at a new place, signed by us.
    Path signedBundle(const std::string& version);
    /// With modes and links.
    QByteArray zipped(const Path& bundle) const;
    /// Serves a manifest of that version, and the archive.
    void publish(const std::string& version, const QByteArray& archive);
    /// The application has a real update in hand.
    void stageUpdate();

    /// It runs as if nothing had been: its bundle is whole, nothing is left of what it took in hand.
    void expectUntouched();
    std::vector<Path> stagingFolders() const;
    Path stagedBundle() const;

    /// Has the tool of the current bundle wait whenever `holdTool` was called before. Before the bundle is signed.
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
