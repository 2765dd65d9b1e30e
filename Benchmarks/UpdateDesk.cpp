#include "UpdateDesk.h"

#include "SigningSupport/ProgramRun.h"
#include "SigningSupport/TestIdentity.h"

#include "PlatformBundle/RunningProcess.h"
#include "PlatformBundle/Spawn.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <QCoreApplication>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr char serviceName[] = "zorvane.Vimble.UpdateKitInstallerXPC";
constexpr std::chrono::seconds patience{60};
/// The time between two looks at the screen or a process. Measured times can be off by this much.
constexpr std::chrono::microseconds lookInterval{250};

double seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

void copyBundle(const fs::path& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

void sign(const fs::path& identity, const fs::path& bundle) {
    const ProgramRun run = codesign({"--sign", identity, bundle});
    if (run.status != 0) throw std::runtime_error(run.errors);
}

/// The process that has locked the application's folder.
pid_t holderOf(const fs::path& dataFolder) {
    pid_t number = -1;
    std::ifstream(dataFolder / ".lock") >> number;
    return number;
}

}  // namespace

UpdateDesk::UpdateDesk() {
    makeEnvironment();
    screen.emplace(folder.path / "screen");
    ::setenv("DISPLAY", screen->display().c_str(), 1);
    bus.emplace(folder.path / "bus");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus->address().c_str(), 1);
    ::setenv("XDG_DATA_HOME", bus->dataHome().c_str(), 1);
    startKeyring();

    const Path identity = folder.path / "identity.pem";
    std::ofstream(identity) << usualChain().pem();
    copyBundle(BUNDLE, installed);
    sign(identity, installed);
    copyBundle(installed, release);
    host.bundle["CFBundleIdentifier"] = "zorvane.Vimble";
    client.emplace(host, std::nullopt, bus->address());
    // Start once, unmeasured: the first start makes a key, and tells the desktop and the bus where the bundle lies.
    start();
    staging.emplace(folder.path / "cache" / "zorvane.Vimble" / "tmp");
    end();
}

UpdateDesk::~UpdateDesk() {
    if (application > 0) ::kill(application, SIGKILL);
    if (application > 0 && isChild) ::waitpid(application, nullptr, 0);
    if (keyring > 0) {
        ::kill(keyring, SIGKILL);
        ::waitpid(keyring, nullptr, 0);
    }
}

void UpdateDesk::makeEnvironment() const {
    const auto place = [this](const char* variable, const char* name) {
        const Path path = folder.path / name;
        fs::create_directory(path);
        fs::permissions(path, fs::perms::owner_all);
        ::setenv(variable, path.c_str(), 1);
    };
    place("HOME", "home");
    place("XDG_CONFIG_HOME", "config");
    place("XDG_CACHE_HOME", "cache");
    place("XDG_RUNTIME_DIR", "run");
    for (const char* variable : {"WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "QT_QPA_PLATFORMTHEME", "XDG_CURRENT_DESKTOP"})
        ::unsetenv(variable);
    // The manifest offers no newer version, but the application looks at it, as it does for users.
    const Path manifest = folder.path / "latest.json";
    std::ofstream(manifest) << R"({"version": "0.0.1", "url": "Vimble.zip"})";
    ::setenv("VIMBLE_UPDATE_MANIFEST_URL", manifest.c_str(), 1);
}

void UpdateDesk::startKeyring() {
    const Path password = folder.path / "password";
    std::ofstream(password) << "pw";
    const FileDescriptor input(::open(password.c_str(), O_RDONLY | O_CLOEXEC));
    const FileDescriptor output(::open((folder.path / "keyring.log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    SpawnRequest daemon;
    daemon.executable = "/usr/bin/gnome-keyring-daemon";
    daemon.arguments = {"--foreground", "--unlock", "--components=secrets"};
    daemon.input = input.get();
    daemon.output = output.get();
    keyring = spawn(daemon);
    waitFor([this] { return bus->processOf("org.freedesktop.secrets").has_value(); }, "keyring");
}

void UpdateDesk::waitFor(const std::function<bool()>& condition, const char* what) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > end) throw std::runtime_error("no " + std::string(what));
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(lookInterval);
    }
}

double UpdateDesk::start() {
    const FileDescriptor log(::open((folder.path / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    SpawnRequest program;
    program.executable = installed / "Contents" / "Linux" / "Vimble";
    program.output = log.get();
    const auto begin = Clock::now();
    application = spawn(program);
    isChild = true;
    waitFor([this] { return !screen->isBlank(); }, "first picture");
    return seconds(Clock::now() - begin);
}

void UpdateDesk::prepareUpdate() {
    staged = staging->make();
    copyBundle(release, staged / "extracted" / "Vimble.app");
    // Write the update to the disk now. Users' updates lie ready for minutes, but here the installer would have to wait
    // for files that are still on their way to the disk.
    const FileDescriptor place(::open(staged.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (::syncfs(place.get()) != 0) throw std::runtime_error("the update can't be written");
}

UpdateDesk::Gap UpdateDesk::update() {
    const auto old = RunningProcess::open(application);
    if (!old) throw std::runtime_error("the application does not run");
    bool isOver = false;
    std::string trouble;
    const auto request =
        client->install({staged / "extracted" / "Vimble.app", installed, application}, [&](Outcome<Done> outcome) {
            isOver = true;
            try {
                static_cast<void>(outcome.take());
            } catch (const std::exception& error) {
                trouble = error.what();
            }
        });
    std::optional<Clock::time_point> hidden, gone, painted;
    waitFor(
        [&] {
            const bool isBlank = screen->isBlank();
            const auto now = Clock::now();
            if (!hidden && isBlank) hidden = now;
            if (!gone && !old->isRunning()) gone = now;
            if (hidden && gone && !isBlank) painted = now;
            return painted || !trouble.empty();
        },
        "picture of the new application");
    if (!painted) throw std::runtime_error(trouble);
    if (isChild) ::waitpid(application, nullptr, 0);
    isChild = false;
    application = holderOf(dataFolder);
    waitFor([&] { return isOver; }, "answer of the installer");
    if (!trouble.empty()) throw std::runtime_error(trouble);
    waitFor([this] { return !bus->processOf(serviceName); }, "end of the installer");
    staging->remove(staged);
    return {seconds(*painted - *gone), seconds(*painted - *hidden)};
}

void UpdateDesk::end() {
    const auto process = RunningProcess::open(application);
    if (process) static_cast<void>(process->signal(SIGTERM));
    waitFor([&] { return !process || !process->isRunning(); }, "end of the application");
    if (isChild) ::waitpid(application, nullptr, 0);
    application = -1;
    waitFor([this] { return screen->isBlank(); }, "blank screen");
}
