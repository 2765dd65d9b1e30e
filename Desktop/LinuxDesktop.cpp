#include "LinuxDesktop.h"

#include "DesktopKit/Alert.h"
#include "DesktopKit/PassphraseDialog.h"
#include "PlatformBundle/BundleRegistration.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/NetlinkPathMonitor.h"
#include "PlatformCore/QtTransport.h"
#include "PlatformCore/SecretServiceStore.h"
#include "PlatformCore/ServiceRegistration.h"
#include "PlatformCore/SettingsDefaults.h"
#include "PlatformCore/SignalWatch.h"
#include "PlatformCore/XPCInstallerClient.h"
#include "PlatformDesktop/FreedesktopNotifications.h"
#include "PlatformDesktop/PulseSoundPlayer.h"
#include "PlatformDesktop/WindowActivation.h"
#include "PlatformDesktop/WindowActivity.h"
#include "PlatformUpdate/LiveUpdateEnvironment.h"
#include "PlatformUpdate/Reachability.h"
#include "PlatformUpdate/UpdateThread.h"
#include "StateKit/Log.h"
#include "StateKit/WorkerThread.h"
#include "Text/Text.h"
#include "TranscriptKit/DisplayText.h"
#include "UpdateKit/InstallerXPC.h"

#include <QApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

constexpr char programName[] = "vimble";
constexpr std::chrono::seconds registrationTime{10};  // how long the desktop's registration tool may take

const Log machineLog("zorvane.Vimble", "main");

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

/// Does work that the program can go on without: if it throws, one line is logged and nothing else happens.
template <class Work>
void attempt(const char* trouble, Work&& work) {
    try {
        work();
    } catch (const std::exception& error) {
        machineLog.error(std::string(trouble) + " " + Text::escaped(error.what()));
    }
}

class LinuxServices : public DesktopServices {
public:
    LinuxServices(MainLoop& loop, const ApplicationFolder& folder, const std::optional<std::filesystem::path>& dataDir,
                  std::unique_ptr<NetlinkPathMonitor> ownMonitor)
        : loop(loop), folder(folder), monitor(*ownMonitor), _internets(loop, std::move(ownMonitor)), defaults(dataDir) {
        QObject::connect(qGuiApp, &QGuiApplication::commitDataRequest, &context, [this] {
            if (sessionEnding) sessionEnding();
        });
    }

    const Host& host() override { return _host; }
    UserDefaults& userDefaults() override { return defaults; }
    Lifecycle& lifecycle() override { return _lifecycle; }
    SoundPlayer& sounds() override { return _sounds; }
    std::optional<std::string> environmentVariable(const char* name) override { return variable(name); }

    Internets& internets() override { return _internets; }
    void setEndpointUrl(const std::string& url) override { monitor.setEndpointUrl(url); }
    Transport& transport() override { return _transport; }
    void onTrouble(std::function<void(const std::string&)> tell) override { _transport.onTrouble(std::move(tell)); }
    void drain(Seconds atMost, std::function<void()> done) override {
        _transport.drain(atMost, [done = std::move(done)](bool) { done(); });
    }

    NotificationCenter& notifications() override { return _notifications; }
    void onNotificationActivated(std::function<void(const ActivationToken&)> activated) override {
        _notifications.onActivated(std::move(activated));
    }
    void markWindow(QWidget& window) override { QApplication::alert(&window); }

    Worker& secretWorker() override { return worker; }
    std::shared_ptr<Worker> pictureWorker() override { return _pictureWorker; }

    void onSignal(std::function<void()> came) override {
        signalWatch.reset();
        if (came) signalWatch.emplace(std::move(came));
    }
    void onSessionEnding(std::function<void()> ending) override { sessionEnding = std::move(ending); }

    std::unique_ptr<UpdateKit> makeUpdateKit(const Url& manifestUrl) override {
        MainLoop& own = updateThread.emplace().loop();
        return std::make_unique<UpdateKit>(loop, own, defaults, manifestUrl,
                                           liveUpdateEnvironment(own, _host, reachability, folder.temporary(),
                                                                 std::make_shared<XPCInstallerClient>(_host)));
    }
    std::future<void> registerProgram() override;

private:
    MainLoop& loop;
    const ApplicationFolder& folder;
    const LinuxHost _host;
    NetlinkPathMonitor& monitor;  // owned by `_internets`
    Internets _internets;
    QtTransport _transport{loop};
    SettingsDefaults defaults;
    Lifecycle _lifecycle{loop, std::make_unique<WindowActivity>()};
    FreedesktopNotifications _notifications{loop};
    PulseSoundPlayer _sounds;
    WorkerThread worker;
    const std::shared_ptr<WorkerThread> _pictureWorker = std::make_shared<WorkerThread>(WorkerThread::AtEnd::drops);
    Reachability reachability{_internets};
    std::optional<UpdateThread> updateThread;  // empty until `makeUpdateKit` needs it
    std::function<void()> sessionEnding;
    std::optional<SignalWatch> signalWatch;
    QObject context;  // its end disconnects us from the toolkit's signals
};

/// Runs on its own thread, since the home folder may lie on a slow file server.
std::future<void> LinuxServices::registerProgram() {
    if (!_host.bundle()) return {};
    return std::async(std::launch::async, [bundle = *_host.bundle()] {
        attempt("Updates can't be installed.", [&] {
            const auto name = InstallerXPC::serviceName(bundle.text("CFBundleIdentifier"));
            const std::filesystem::path service = bundle.path / "Contents" / "Services" / "vimble-installer";
            if (!name || !std::filesystem::exists(service)) throw std::runtime_error("The bundle has no installer");
            ServiceRegistration::write(*name, service, ApplicationFolder::place(std::nullopt).parent_path());
            // A bus that was started with another environment than ours looks for services elsewhere in the home, but
            // it always looks in the runtime folder too.
            if (const auto runtime = variable("XDG_RUNTIME_DIR"); runtime && runtime->starts_with('/'))
                ServiceRegistration::write(*name, service, *runtime);
        });
        attempt("The desktop does not find this Vimble.", [&] {
            PosixProcessLauncher launcher(registrationTime);
            if (BundleRegistration(ApplicationFolder::place(std::nullopt).parent_path(), launcher).add(bundle))
                machineLog.info("The desktop now finds Vimble in " + Text::escaped(bundle.path.native()));
        });
    });
}

}  // namespace

LinuxDesktop::LinuxDesktop(std::optional<std::filesystem::path> dataDir)
    : dataDir(std::move(dataDir)), instance(SingleInstance::busName(this->dataDir)) {}

void LinuxDesktop::tellStandardError(const std::string& text) {
    std::fprintf(stderr, "%s: %s\n", programName, text.c_str());
}

void LinuxDesktop::tellUser(const std::string& text, const std::string& more) {
    tellStandardError(Text::escaped(text + (more.empty() ? "" : ": " + more)));
    Alert(QMessageBox::Critical, DisplayText::message(text), DisplayText::message(more)).exec();
}

void LinuxDesktop::leaveLoop() { QCoreApplication::exit(0); }

void LinuxDesktop::bringForward(QWidget& window, const ActivationToken& token) { ::bringForward(window, token); }

SingleInstance::Outcome LinuxDesktop::claim(const QStringList& urls, const ActivationToken& token,
                                            std::chrono::milliseconds within) {
    return instance.claim(urls, token, within);
}

void LinuxDesktop::setHandlers(SingleInstance::Handlers handlers) { instance.setHandlers(std::move(handlers)); }

std::unique_ptr<SecretStore> LinuxDesktop::makeSecretStore(const std::optional<std::filesystem::path>& file,
                                                           SealedFileStore::AskPassphrase ask) {
    if (!file) return std::make_unique<SecretServiceStore>();
    return std::make_unique<SealedFileStore>(*file, std::move(ask));
}

std::optional<Passphrase> LinuxDesktop::askPassphrase(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                                      bool wasWrong) {
    return PassphraseDialog::ask(reason, file, wasWrong);
}

std::unique_ptr<DesktopServices> LinuxDesktop::makeServices(const ApplicationFolder& folder) {
    return std::make_unique<LinuxServices>(_loop, folder, dataDir, std::make_unique<NetlinkPathMonitor>(_loop));
}
