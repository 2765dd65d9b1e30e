#pragma once

#include "DesktopKit/DesktopMachine.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformDesktop/SingleInstance.h"

#include <filesystem>
#include <optional>
#include <string>

/// The desktop program's machine on Linux: Qt's loop, the session bus, and the adapters of every seam.
///
/// Main thread only. Make it after the QApplication and destroy it before that.
class LinuxDesktop : public DesktopMachine {
public:
    /// @param dataDir  the folder that the user has chosen for the application's data
    explicit LinuxDesktop(std::optional<std::filesystem::path> dataDir);

    /// The same as `complain` and `alert`, for callers that have no machine yet.
    static void tellStandardError(const std::string& text);
    static void tellUser(const std::string& text, const std::string& more);

    MainLoop& loop() override { return _loop; }
    void leaveLoop() override;

    void complain(const std::string& text) override { tellStandardError(text); }
    void alert(const std::string& text, const std::string& more) override { tellUser(text, more); }
    void bringForward(QWidget& window, const ActivationToken& token) override;

    SingleInstance::Outcome claim(const QStringList& urls, const ActivationToken& token,
                                  std::chrono::milliseconds within) override;
    QString claimError() override { return instance.error(); }
    void setHandlers(SingleInstance::Handlers handlers) override;
    void beginEnding() override { instance.beginEnding(); }

    std::unique_ptr<SecretStore> makeSecretStore(const std::optional<std::filesystem::path>& file,
                                                 SealedFileStore::AskPassphrase ask) override;
    std::optional<Passphrase> askPassphrase(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                            bool wasWrong) override;

    std::unique_ptr<DesktopServices> makeServices(const ApplicationFolder& folder) override;

private:
    const std::optional<std::filesystem::path> dataDir;
    SingleInstance instance;
    QtMainLoop _loop;
};
