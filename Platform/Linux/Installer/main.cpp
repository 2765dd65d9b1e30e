#include "PlatformBundle/LinuxFileManager.h"
#include "PlatformBundle/LiveInstallerEnvironment.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/StagingFolders.h"
#include "PlatformInstaller/InstallerBundle.h"
#include "PlatformInstaller/InstallerXPCListener.h"
#include "PlatformInstaller/OwnScope.h"
#include "StateKit/Log.h"
#include "Text/Text.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>

#include <algorithm>
#include <csignal>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

/// Writes each message as a line to standard error, which a bus that starts services hands to the journal.
class StandardError : public LogSink {
public:
    void write(LogLevel, std::string_view subsystem, std::string_view category, std::string_view message) override {
        std::string line = std::string(subsystem) + "/" + std::string(category) + ": " + std::string(message);
        std::replace_if(
            line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
        line += '\n';
        // Write it in one call, so that it stays whole among the lines of others. What can't be written is lost.
        static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
    }
};

InstallerReply install(const InstallerLaunchRequest& request, const InstallerBundle& bundle, OwnScope& scope) {
    // Hold the update here too: the application keeps it from being cleared away only for as long as it runs.
    std::shared_ptr<void> held;
    try {
        held = StagingFolders::hold(request.stagedApp);
    } catch (const std::exception& error) {
        return {error.what(), false};
    }
    const auto bundleReader = std::make_shared<PropertyListBundleReader>();
    LinuxFileManager fileManager;
    InstallerEnvironment environment = liveInstallerEnvironment(
        std::make_shared<PosixProcessLauncher>(), bundleReader, bundle.codeSignTool,
        [&](pid_t process) { scope.give(process, QString::fromStdString(bundle.applicationId)); });
    environment.relaunchApp = [&held, relaunch = environment.relaunchApp](const std::filesystem::path& application) {
        // Let go, so that the new application can clear away what is left of the folder at its start.
        held.reset();
        relaunch(application);
    };
    return installUpdate(request, [&] {
        return std::make_unique<InstallerService>(fileManager, *bundleReader, environment, InstallerPollingPolicy());
    });
}

void serve() {
    const InstallerBundle bundle = InstallerBundle::of(std::filesystem::read_symlink("/proc/self/exe"));
    const QString busName = QStringLiteral("installer");
    const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, busName);
    if (!bus.isConnected()) throw std::runtime_error("no session bus: " + bus.lastError().message().toStdString());
    OwnScope scope(bus);
    InstallerXPCListener listener(
        bus, [&](const InstallerLaunchRequest& request) { return install(request, bundle, scope); },
        [] { QCoreApplication::quit(); });
    const QString trouble = listener.listen(QString::fromStdString(bundle.serviceName));
    if (!trouble.isEmpty()) throw std::runtime_error(trouble.toStdString());
    QCoreApplication::exec();
    QDBusConnection::disconnectFromBus(busName);
}

}  // namespace

// The service that replaces the application. It lies in the application's bundle and is started by the session bus.
int main(int argc, char** argv) {
    // Nothing may end this process between two renames: neither the end of the terminal or session from which the bus
    // was started, nor a log that nobody reads any more.
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGPIPE, SIG_IGN);
    static_cast<void>(::setsid());
    Log::setSink(std::make_shared<StandardError>());
    const QCoreApplication application(argc, argv);
    try {
        serve();
        return 0;
    } catch (const std::exception& error) {
        Log("UpdateKitInstaller", "main").error(Text::escaped(error.what()));
        return 1;
    }
}
