// An application without windows that updates itself, with all parts of the real one's updater, for tests of what
// others may do to it.
//
// Arguments: the folder for its report, the manifest's URL, a temporary folder, and how many milliseconds the
// installer may take to answer. It takes commands on its standard input ("check", "install", "quit"), and writes
// what happens into a file named after its process, a line each.

#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformCore/XPCInstallerClient.h"
#include "PlatformUpdate/LiveUpdateEnvironment.h"
#include "PlatformUpdate/Reachability.h"
#include "PlatformUpdate/UpdateThread.h"
#include "StateKit/Internets.h"
#include "StateKit/Log.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/MemoryDefaults.h"
#include "Text/Text.h"
#include "UpdateKit/UpdateKit.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class Report : public LogSink {
public:
    explicit Report(const fs::path& path)
        : file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {}

    void line(const std::string& text) const {
        const std::string whole = text + '\n';
        static_cast<void>(!::write(file, whole.data(), whole.size()));
    }

    void write(LogLevel level, std::string_view, std::string_view, std::string_view message) override {
        const bool isOneLine = Text::isUtf8(message) &&
                               std::ranges::none_of(message, [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; });
        const std::string word = level == LogLevel::error ? "error " : "info ";
        line(isOneLine ? word + std::string(message) : "not one line: " + Text::escaped(message));
    }

private:
    const int file;
};

class Observer : public SignalTarget {
public:
    Observer(const Report& report, UpdateKit& kit) : report(report) {
        kit.observeReady(
            *this, [](Observer& self, const auto& message) { self.report.line("ready " + message.info.version); });
        kit.observeFailed(*this, [](Observer& self, const auto& message) {
            self.report.line(std::string("failed ") + name(message.info.category) +
                             (message.info.shouldPresentToUser ? " for the user: " : ": ") +
                             Text::escaped(message.info.summary));
        });
        kit.observeCheckedNoUpdate(
            *this, [](Observer& self, const auto& message) { self.report.line("none: " + message.info.summary); });
    }

private:
    const Report& report;
};

void obey(const std::string& command, UpdateKit& kit) {
    if (command == "check") kit.checkForUpdates();
    if (command == "install") kit.installUpdate();
    if (command == "quit") QCoreApplication::quit();
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 5) return 2;
    // End after a while, so that this process does not stay if the test dies.
    ::alarm(300);
    QCoreApplication application(count, arguments);
    const LinuxHost host;
    const fs::path path = fs::path(arguments[1]) / std::to_string(::getpid());
    const auto report = std::make_shared<Report>(path.native() + ".new");
    report->line("version " + host.bundleInfo("CFBundleShortVersionString").value_or("?"));
    report->line("program " + fs::read_symlink("/proc/self/exe").native());
    Log::setSink(report);

    QtMainLoop loop;
    FakePath network;
    Internets internets(loop, network.monitor());
    Reachability reachability(internets);
    MemoryDefaults defaults;
    const auto installer = std::make_shared<XPCInstallerClient>(host, std::nullopt, std::nullopt,
                                                                std::chrono::milliseconds(std::stoi(arguments[4])));
    {
        UpdateThread thread;
        UpdateKit kit(loop, thread.loop(), defaults, *Url::parse(arguments[2]),
                      liveUpdateEnvironment(thread.loop(), host, reachability, arguments[3], installer));
        const Observer observer(*report, kit);
        QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
        std::string commands;
        QObject::connect(&input, &QSocketNotifier::activated, [&] {
            std::array<char, 100> buffer;
            const ssize_t size = ::read(STDIN_FILENO, buffer.data(), buffer.size());
            if (size <= 0) return input.setEnabled(false);
            commands.append(buffer.data(), static_cast<std::size_t>(size));
            for (std::size_t end; (end = commands.find('\n')) != std::string::npos; commands.erase(0, end + 1))
                obey(commands.substr(0, end), kit);
        });
        fs::rename(path.native() + ".new", path);
        QCoreApplication::exec();
    }
    report->line("ended");
    return 0;
}
