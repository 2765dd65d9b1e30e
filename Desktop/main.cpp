#include "DesktopKit/Alert.h"
#include "DesktopKit/App.h"
#include "DesktopKit/AppUpdater.h"
#include "DesktopKit/DesktopOptions.h"
#include "DesktopKit/PassphraseDialog.h"
#include "DesktopKit/PassphraseQuestion.h"
#include "DesktopKit/QuitRequests.h"
#include "DesktopViews/Icons.h"
#include "PlatformBundle/BundleRegistration.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformCore/ApplicationFolder.h"
#include "PlatformCore/EnvironmentPassphrase.h"
#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/NetlinkPathMonitor.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformCore/QtMessages.h"
#include "PlatformCore/QtTransport.h"
#include "PlatformCore/SealedFileStore.h"
#include "PlatformCore/SecretServiceStore.h"
#include "PlatformCore/ServiceRegistration.h"
#include "PlatformCore/SettingsDefaults.h"
#include "PlatformCore/SignalWatch.h"
#include "PlatformCore/SystemLog.h"
#include "PlatformCore/XPCInstallerClient.h"
#include "PlatformDesktop/DesktopAppearance.h"
#include "PlatformDesktop/FreedesktopNotifications.h"
#include "PlatformDesktop/PulseSoundPlayer.h"
#include "PlatformDesktop/SingleInstance.h"
#include "PlatformDesktop/WindowActivation.h"
#include "PlatformDesktop/WindowActivity.h"
#include "PlatformUpdate/LiveUpdateEnvironment.h"
#include "PlatformUpdate/Reachability.h"
#include "PlatformUpdate/UpdateThread.h"
#include "QtText/QtText.h"
#include "StateKit/Internets.h"
#include "StateKit/Lifecycle.h"
#include "StateKit/Log.h"
#include "StateKit/WorkerThread.h"
#include "Text/Text.h"
#include "TranscriptKit/DisplayText.h"
#include "UpdateKit/InstallerXPC.h"
#include "VimbleKit/Arguments.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/ServerText.h"
#include "VimbleKit/State.h"

#include <QApplication>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

constexpr char programName[] = "vimble";
constexpr int usageStatus = 2;
/// How long the end of the program waits for the network to take what was said.
constexpr Seconds drainTime = 3;
constexpr std::chrono::milliseconds nameTime{500};
/// How long the end of the program waits for a new key to be written. What takes longer waits for a user, at a
/// prompt, or for a service that is not going to answer; either way the old key is there.
constexpr std::chrono::seconds keyTime{5};
constexpr std::chrono::seconds registrationTime{10};  // for the desktop's own tool
/// How long it waits for a picture that is being read, for nobody any more: it may lie on a disk that does not answer.
constexpr std::chrono::seconds pictureTime{1};

const Log log("zorvane.Vimble", "main");

void complain(const std::string& text) { std::fprintf(stderr, "%s: %s\n", programName, text.c_str()); }

/// For whoever started the program from a desktop, and sees no standard error.
void alert(const std::string& text, const std::string& more = {}) {
    complain(Text::escaped(text + (more.empty() ? "" : ": " + more)));
    Alert(QMessageBox::Critical, DisplayText::message(text), DisplayText::message(more)).exec();
}

/// Where the secret key is kept, as the user has chosen.
class Secrets {
public:
    Secrets(const DesktopOptions& options, std::optional<Passphrase> given, MainLoop& loop)
        : file(options.secretFile),
          given(std::move(given)),
          question(loop, [this](SealedFileStore::Reason reason) { return passphrase(reason); }) {
        if (!file)
            _store = std::make_unique<SecretServiceStore>();
        else
            _store = std::make_unique<SealedFileStore>(
                *file, [this](SealedFileStore::Reason reason) { return question.ask(reason); });
    }

    SecretStore& store() { return *_store; }
    /// Asks for nothing more.
    void close() { question.close(); }

    /// Has the file opened, or made with a first key in it, and asks for as long as the answers are wrong.
    /// @return false if the user has given it up
    bool unlock() {
        while (file) {
            try {
                Keys::loadOrGenerate(*_store);
                return true;
            } catch (const KeysError& error) {
                if (error.status == SecretStatuses::userCanceled) return false;
                // Anything else is told by whoever needs the key.
                if (error.status != SecretStatuses::authFailed) return true;
                wasWrong = true;
            }
        }
        return true;
    }

private:
    std::optional<Passphrase> passphrase(SealedFileStore::Reason reason) {
        if (given) {
            std::optional<Passphrase> result = std::move(given);
            given.reset();
            return result;
        }
        return PassphraseDialog::ask(reason, *file, wasWrong);
    }

    const std::optional<std::filesystem::path> file;
    std::optional<Passphrase> given;
    bool wasWrong = false;
    PassphraseQuestion question;
    std::unique_ptr<SecretStore> _store;
};

/// Tells the watch of the network which server is in use: one on this machine needs no network.
class EndpointWatch : public SignalTarget {
public:
    struct LocalState {
        using StateType = State;
        explicit LocalState(const State* state) : endpoint(state != nullptr ? state->endpoint : std::nullopt) {}
        bool operator==(const LocalState&) const = default;

        std::optional<Endpoint> endpoint;
    };

    EndpointWatch(Kit& kit, NetlinkPathMonitor& watched) : monitor(watched) {
        kit.observeModel<LocalState>(*this, [](EndpointWatch& self, const LocalState& state) {
            if (state.endpoint) self.monitor.setEndpointUrl(state.endpoint->url());
        });
    }

private:
    NetlinkPathMonitor& monitor;
};

std::optional<std::string> environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

/// The application's folder, from the very start of the program: reading what lies in it takes as long as
/// all that the toolkit does until the first window, and so is done at the same time.
struct Remembered {
    /// @throws ApplicationFolderError
    explicit Remembered(const std::optional<std::filesystem::path>& dataDir)
        : folder(dataDir, programName, Date::fromUnix(static_cast<double>(std::time(nullptr)))),
          state(std::async(std::launch::async, [path = folder.path()] { return State::load(path, {}); })) {}

    const ApplicationFolder folder;
    std::future<State> state;  // the engine's, once
};

/// What is done beside the program, and told in one line if it can't be.
template <class Work>
void attempt(const char* trouble, Work&& work) {
    try {
        work();
    } catch (const std::exception& error) {
        log.error(std::string(trouble) + " " + Text::escaped(error.what()));
    }
}

/// Tells the session bus and the desktop where the bundle lies that this program was started from, on a thread of
/// its own: a home may lie on a machine that takes its time.
std::future<void> registerBundle(const LinuxHost& host) {
    if (!host.bundle()) return {};
    return std::async(std::launch::async, [bundle = *host.bundle()] {
        attempt("Updates can't be installed.", [&] {
            const auto name = InstallerXPC::serviceName(bundle.text("CFBundleIdentifier"));
            const std::filesystem::path service = bundle.path / "Contents" / "Services" / "vimble-installer";
            if (!name || !std::filesystem::exists(service)) throw std::runtime_error("The bundle has no installer");
            ServiceRegistration::write(*name, service, ApplicationFolder::place(std::nullopt).parent_path());
            // A bus that was started with other variables than this program looks for the user's data elsewhere, but
            // in this folder too.
            if (const auto runtime = environmentVariable("XDG_RUNTIME_DIR"); runtime && runtime->starts_with('/'))
                ServiceRegistration::write(*name, service, *runtime);
        });
        attempt("The desktop does not find this Vimble.", [&] {
            PosixProcessLauncher launcher(registrationTime);
            if (BundleRegistration(ApplicationFolder::place(std::nullopt).parent_path(), launcher).add(bundle))
                log.info("The desktop now finds Vimble in " + Text::escaped(bundle.path.native()));
        });
    });
}

/// Runs the program to its end. @return the exit status
int chat(const DesktopOptions& options, const std::optional<Endpoint>& server, Secrets& secrets,
         SingleInstance& instance, Remembered& remembered, QtMainLoop& loop) {
    if (!secrets.unlock()) return 1;
    const std::filesystem::path& folder = remembered.folder.path();
    const LinuxHost host;
    auto ownMonitor = std::make_unique<NetlinkPathMonitor>(loop);
    NetlinkPathMonitor& monitor = *ownMonitor;
    Internets internets(loop, std::move(ownMonitor));
    QtTransport transport(loop);
    SettingsDefaults defaults(options.dataDir);
    Lifecycle lifecycle(loop, std::make_unique<WindowActivity>());
    FreedesktopNotifications notifications(loop);
    PulseSoundPlayer sounds;

    std::optional<Kit> kit;
    std::optional<EndpointWatch> endpointWatch;
    const auto startedKit = [&]() -> Kit& {
        if (!kit) {
            kit.emplace(KitEnvironment{loop, internets, secrets.store(), transport, host, folder,
                                       [&remembered] { return remembered.state.get(); }});
            if (server) kit->setEndpoint(*server);
            endpointWatch.emplace(*kit, monitor);
            internets.start();
            if (server) kit->connect();
        }
        return *kit;
    };

    WorkerThread worker;
    const auto pictureWorker = std::make_shared<WorkerThread>(WorkerThread::AtEnd::drops);
    Reachability reachability(internets);
    std::optional<UpdateThread> updateThread;  // once there is something for it to do
    AppUpdater updater({.loop = loop,
                        .variable = environmentVariable,
                        .bundleInfo = [&host](std::string_view key) { return host.bundleInfo(key); },
                        .makeUpdateKit =
                            [&](const Url& manifestUrl) {
                                MainLoop& own = updateThread.emplace().loop();
                                return std::make_unique<UpdateKit>(
                                    loop, own, defaults, manifestUrl,
                                    liveUpdateEnvironment(own, host, reachability, remembered.folder.temporary(),
                                                          std::make_shared<XPCInstallerClient>(host)));
                            }});

    std::optional<App> app;
    bool isEnding = false;
    const auto quit = [&] {
        if (isEnding) return;
        isEnding = true;
        secrets.close();
        // Who starts the program now is to get one that lives.
        instance.beginEnding();
        if (app) app->applicationWillTerminate();
        for (QWidget* window : QApplication::topLevelWidgets()) window->hide();
        // What was just said may still be on its way out.
        if (kit && kit->canSend())
            transport.drain(drainTime, [](bool) { QCoreApplication::exit(0); });
        else
            QCoreApplication::exit(0);
    };
    bool isAttended = true;
    const SignalWatch signalWatch([&] {
        isAttended = false;
        quit();
    });
    // The end of the session may come without another word.
    QObject::connect(qGuiApp, &QGuiApplication::commitDataRequest, qGuiApp, [&kit] {
        try {
            if (kit) kit->save();
        } catch (const std::exception& error) {
            log.error(error.what());
        }
    });
    // Nothing of this begins when a session is only about to end: that may be called off, and the program goes on.
    const QuitRequests quitRequests(quit);

    app.emplace(AppEnvironment{
        .loop = loop,
        .secrets = secrets.store(),
        .worker = worker,
        .pictureWorker = pictureWorker,
        .kit = startedKit,
        .host = host,
        .folder = folder,
        .userDefaults = defaults,
        .lifecycle = lifecycle,
        .notifications = notifications,
        .sounds = sounds,
        .alert = [](QWidget& window) { QApplication::alert(&window); },
        .bringForward = [](QWidget& window, const ActivationToken& token) { bringForward(window, token); },
        .quit = quit,
        .updater = &updater});
    if (!app->applicationWillFinishLaunching()) return 1;
    app->applicationDidFinishLaunching();
    const std::future<void> registration = registerBundle(host);
    transport.onTrouble([&app](const std::string& text) {
        log.info(text);
        app->showTrouble(text);
    });
    notifications.onActivated([&app](const ActivationToken& given) { app->activate(given); });
    instance.setHandlers(
        {.activate = [&app](const ActivationToken& given) { app->activate(given); },
         .open = [&app](const QStringList& urls, const ActivationToken& given) { app->openUrls(urls, given); }});

    int status = QCoreApplication::exec();
    // What is told while all this is taken down is told to nobody.
    transport.onTrouble({});
    instance.setHandlers({.activate = [](const auto&) {}, .open = [](const auto&, const auto&) {}});
    notifications.onActivated({});
    app->applicationWillTerminate();
    secrets.close();
    app.reset();
    // The link has gone on taking what came meanwhile, and the relay has forgotten it.
    QCoreApplication::sendPostedEvents();
    try {
        kit->save();
    } catch (const std::exception& error) {
        const std::string text = "What was said could not be saved";
        // Nobody is there to close a dialog when the session, or the machine, is going down.
        isAttended ? alert(text, error.what()) : complain(Text::escaped(text + ": " + error.what()));
        status = 1;
    }
    const bool isStoreDone = worker.finish(keyTime);
    if (!isStoreDone) log.error("The secret store does not answer, and is not waited for");
    if (!pictureWorker->finish(pictureTime) || !isStoreDone) {
        // A thread still uses what would be taken down.
        std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}

int run(const DesktopOptions& options, const std::optional<Endpoint>& server, std::optional<Passphrase> passphrase,
        const ActivationToken& token, std::unique_ptr<Remembered> remembered, const std::string& whoHasIt) {
    SingleInstance instance(SingleInstance::busName(options.dataDir));
    if (remembered) {
        // Who has the folder is the one to be found. A name that another one still has is about to be given back.
        if (instance.claim({}, {}, nameTime) != SingleInstance::Outcome::first)
            log.info("Nobody will find this program over the session bus. " + fromQt(instance.error()));
    } else {
        QStringList urls;
        for (const std::string& url : options.urls) urls.append(toQt(url));
        switch (instance.claim(urls, token)) {
            case SingleInstance::Outcome::forwarded:
                if (server) complain("Vimble runs already for this data, and stays with its server");
                return 0;
            case SingleInstance::Outcome::noAnswer:
                alert("Vimble runs already, and does not answer", fromQt(instance.error()));
                return 1;
            case SingleInstance::Outcome::noBus: throw std::runtime_error(whoHasIt);
            // It has ended while it was asked, or is another program.
            case SingleInstance::Outcome::first: remembered = std::make_unique<Remembered>(options.dataDir); break;
        }
    }
    // Until there is a window, whoever starts the program again looks for the dialog that is open.
    const auto showDialog = [](const ActivationToken& given) {
        if (QWidget* dialog = QApplication::activeModalWidget()) bringForward(*dialog, given);
    };
    instance.setHandlers(
        {.activate = showDialog, .open = [=](const QStringList&, const ActivationToken& given) { showDialog(given); }});
    QtMainLoop loop;
    Secrets secrets(options, std::move(passphrase), loop);
    return chat(options, server, secrets, instance, *remembered, loop);
}

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
    // Printing a key changes this one for a moment, and other threads look at the environment whenever they like:
    // a variable that is there is replaced in one step, while one more would move the list that they are reading.
    ::setenv("TMPDIR", "/tmp", /*overwrite=*/0);
    auto passphrase = EnvironmentPassphrase::take();
    DesktopOptions options;
    try {
        options = DesktopOptions::parse({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const ArgumentsError& error) {
        complain(error.what());
        return usageStatus;
    }
    if (options.wantsHelp || options.wantsVersion) {
        const std::string text =
            options.wantsHelp ? std::string(DesktopOptions::help())
                              : "vimble " + LinuxHost().bundleInfo("CFBundleShortVersionString").value_or("0.0") + "\n";
        return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
    }
    if (!hasScreen()) {
        complain("there is no screen (neither WAYLAND_DISPLAY nor DISPLAY is set); vimble-terminal needs none");
        return 1;
    }

    Log::setSink(std::make_shared<SystemLog>(SystemLog::Destination::journal, LogLevel::info, programName));
    QtMessages::toLog();
    // They tell who talks to whom, which does not belong into the journal.
    if (!SystemLog::isJournal(STDOUT_FILENO)) {
        // Whoever reads along through a pipe wants a line when it is written.
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        DebugLines::setPrint([](std::string_view line) {
            const std::string text = Text::escaped(line) + "\n";
            std::fputs(text.c_str(), stdout);
        });
    }

    std::optional<Endpoint> server;
    std::unique_ptr<Remembered> remembered;
    std::string whoHasIt;
    std::string trouble;
    try {
        if (options.server) server = serverFrom(*options.server);
        remembered = std::make_unique<Remembered>(options.dataDir);
    } catch (const ServerTextError& error) {
        complain(Text::escaped(error.what()));
        return usageStatus;
    } catch (const ApplicationFolderInUse& error) {
        whoHasIt = error.what();
    } catch (const std::exception& error) {
        trouble = error.what();
    }

    const ActivationToken token = ActivationToken::fromEnvironment();
    // Without the arguments: Qt has some of its own, which are nobody's business here.
    int count = argc > 0 ? 1 : 0;
    QApplication application(count, argv);
    // No display name: Qt would put it behind every title.
    QApplication::setApplicationName(QStringLiteral("Vimble"));
    QApplication::setDesktopFileName(QStringLiteral("zorvane.Vimble"));
    QApplication::setWindowIcon(Icons::app());
    QApplication::setQuitOnLastWindowClosed(false);
    const DesktopAppearance appearance;
    try {
        if (!trouble.empty()) throw std::runtime_error(trouble);
        return run(options, server, std::move(passphrase), token, std::move(remembered), whoHasIt);
    } catch (const std::exception& error) {
        alert("Vimble could not start", error.what());
        return 1;
    }
}
