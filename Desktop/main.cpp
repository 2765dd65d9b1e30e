#include "DesktopKit/DesktopOptions.h"
#include "DesktopKit/DesktopProgram.h"
#include "DesktopKit/RememberedFolder.h"
#include "DesktopViews/Icons.h"
#include "LinuxDesktop.h"
#include "PlatformCore/EnvironmentPassphrase.h"
#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/QtMessages.h"
#include "PlatformCore/SystemLog.h"
#include "PlatformDesktop/DesktopAppearance.h"
#include "PlatformDesktop/WindowActivation.h"
#include "StateKit/Log.h"
#include "Text/Text.h"
#include "VimbleKit/Arguments.h"
#include "VimbleKit/ServerText.h"

#include <QApplication>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace {

constexpr char programName[] = "vimble";
constexpr int usageStatus = 2;

bool hasScreen() {
    const auto isSet = [](const char* name) {
        const char* value = std::getenv(name);
        return value != nullptr && *value != '\0';
    };
    return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") || isSet("QT_QPA_PLATFORM");
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    // Printing a key changes TMPDIR for a moment, while other threads may be reading the environment. Replacing a
    // variable that exists is one step; adding one would move the list that they are reading.
    ::setenv("TMPDIR", "/tmp", /*overwrite=*/0);
    auto passphrase = EnvironmentPassphrase::take();
    DesktopOptions options;
    try {
        options = DesktopOptions::parse({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const ArgumentsError& error) {
        LinuxDesktop::tellStandardError(error.what());
        return usageStatus;
    }
    if (options.wantsHelp || options.wantsVersion) {
        const std::string text =
            options.wantsHelp ? std::string(DesktopOptions::help())
                              : "vimble " + LinuxHost().bundleInfo("CFBundleShortVersionString").value_or("0.0") + "\n";
        return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
    }
    if (!hasScreen()) {
        LinuxDesktop::tellStandardError(
            "there is no screen (neither WAYLAND_DISPLAY nor DISPLAY is set); vimble-terminal needs none");
        return 1;
    }

    Log::setSink(std::make_shared<SystemLog>(SystemLog::Destination::journal, LogLevel::info, programName));
    QtMessages::toLog();
    // Debug lines tell who talks to whom, so they must not get into the journal.
    if (!SystemLog::isJournal(STDOUT_FILENO)) {
        // Flush each line, so that a reader at the other end of a pipe sees it at once.
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        DebugLines::setPrint([](std::string_view line) {
            const std::string text = Text::escaped(line) + "\n";
            std::fputs(text.c_str(), stdout);
        });
    }

    std::optional<Endpoint> server;
    try {
        if (options.server) server = serverFrom(*options.server);
    } catch (const ServerTextError& error) {
        LinuxDesktop::tellStandardError(Text::escaped(error.what()));
        return usageStatus;
    }
    // Take the folder before the toolkit starts: the saved state is then read while the toolkit is starting.
    DesktopStart start{.dataDir = options.dataDir,
                       .secretFile = options.secretFile,
                       .urls = options.urls,
                       .server = server,
                       .passphrase = std::move(passphrase),
                       .token = ActivationToken::fromEnvironment(),
                       .folder = takeFolder(options.dataDir, Date::fromUnix(static_cast<double>(std::time(nullptr))))};

    // Pass no arguments: Qt would interpret some of them as its own options.
    int count = argc > 0 ? 1 : 0;
    QApplication application(count, argv);
    // No display name: Qt would put it behind every title.
    QApplication::setApplicationName(QStringLiteral("Vimble"));
    QApplication::setDesktopFileName(QStringLiteral("zorvane.Vimble"));
    QApplication::setWindowIcon(Icons::app());
    QApplication::setQuitOnLastWindowClosed(false);
    const DesktopAppearance appearance;
    try {
        LinuxDesktop machine(options.dataDir);
        DesktopProgram program(std::move(start), machine);
        const DesktopProgram::Ending ending = program.run([] { return QCoreApplication::exec(); });
        if (ending.isThreadBusy) {
            std::fflush(nullptr);
            std::_Exit(ending.status);
        }
        return ending.status;
    } catch (const std::exception& error) {
        LinuxDesktop::tellUser("Vimble could not start", error.what());
        return 1;
    }
}
