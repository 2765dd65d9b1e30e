#pragma once

#include "DesktopKit/DesktopMachine.h"
#include "DesktopKit/RememberedFolder.h"
#include "TestSupport/FakeActivity.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakeNotificationCenter.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/FakeUpdateWorld.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "TestSupport/TestWorker.h"

#include <QApplication>
#include <QMainWindow>

#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A machine on which a test begins and ends the desktop program as often as it likes, one run after the other: it
/// notes in `done`, in order, what the program asks of it. The user is person 1.
class FakeDesktopMachine : public DesktopMachine {
public:
    FakeDesktopMachine() { secrets.put(Nacl::hex(keysOf(1).secretKey.view())); }
    ~FakeDesktopMachine() override { updaterLoop.run(); }

    std::vector<std::string> takeDone() { return std::exchange(done, {}); }

    /// Whether a program has the folder.
    bool isFolderTaken() const { return std::holds_alternative<FolderInUse>(takeFolder(dataDir, _loop.now())); }

    static std::size_t openWindowCount() {
        std::size_t count = 0;
        for (const QWidget* window : QApplication::topLevelWidgets())
            if (window->isVisible() && window->inherits("QMainWindow")) ++count;
        return count;
    }

    // ---- what the program meets

    MainLoop& loop() override { return _loop; }
    void leaveLoop() override { note("leave the loop"); }
    void complain(const std::string& text) override { note("complain: " + text); }
    void alert(const std::string& text, const std::string& more) override { note("alert: " + text + "; " + more); }
    void bringForward(QWidget& window, const ActivationToken& token) override {
        note("bring forward " + window.windowTitle().toStdString() + " with " + token.activation.toStdString());
        window.show();
    }

    SingleInstance::Outcome claim(const QStringList& urls, const ActivationToken& token,
                                  std::chrono::milliseconds within) override {
        note("claim in " + std::to_string(within.count()) + " ms for " + urls.join(' ').toStdString() + " with " +
             token.activation.toStdString());
        if (duringClaim) duringClaim();
        return claimOutcome;
    }
    QString claimError() override { return QStringLiteral("no bus"); }
    void setHandlers(SingleInstance::Handlers given) override { handlers = std::move(given); }
    void beginEnding() override { note("begin ending"); }

    std::unique_ptr<SecretStore> makeSecretStore(const std::optional<std::filesystem::path>& file,
                                                 SealedFileStore::AskPassphrase ask) override {
        note(file ? "open the store in " + file->filename().string() : "open the desktop's store");
        askProgram = std::move(ask);
        return std::make_unique<Store>(*this);
    }
    std::optional<Passphrase> askPassphrase(SealedFileStore::Reason, const std::filesystem::path& file,
                                            bool wasWrong) override {
        note("ask for the passphrase of " + file.filename().string() + (wasWrong ? " again" : ""));
        if (duringQuestion) duringQuestion();
        return std::nullopt;
    }

    std::unique_ptr<DesktopServices> makeServices(const ApplicationFolder&) override {
        note("make services");
        return std::make_unique<Services>(*this);
    }

    TestLoop _loop;
    TemporaryFolder folder;
    const std::filesystem::path dataDir = folder.path / "data";
    std::vector<std::string> done;

    SingleInstance::Outcome claimOutcome = SingleInstance::Outcome::first;
    std::function<void()> duringClaim;
    SingleInstance::Handlers handlers;

    MemorySecretStore secrets;
    SealedFileStore::AskPassphrase askProgram;  // as the store asks
    std::function<void()> duringQuestion;

    FakePath path;
    FakeTransport transport{_loop};
    FakeHost host;
    MemoryDefaults defaults;
    FakeApplication application;
    FakeNotificationCenter notificationCenter{_loop};
    FakeSoundPlayer soundPlayer;
    TestWorker keyWorker;
    std::shared_ptr<TestWorker> imageWorker = std::make_shared<TestWorker>();
    std::map<std::string, std::string> variables;
    TestLoop updaterLoop;
    FakeUpdateWorld updates{updaterLoop};

    // What the program wants to be told of; empty without a program.
    std::function<void(const std::string&)> trouble;
    std::function<void()> drained;
    std::function<void(const ActivationToken&)> notificationActivated;
    std::function<void()> signalled;
    std::function<void()> sessionEnding;

private:
    /// Uses the machine's items, as a new one does in each run.
    class Store : public SecretStore {
    public:
        explicit Store(FakeDesktopMachine& machine) : machine(machine) {}
        ~Store() override { machine.note("close the store"); }

        Found copyMatching(const SecretQuery& query) override { return machine.secrets.copyMatching(query); }
        SecretStatus add(const SecretItem& item) override { return machine.secrets.add(item); }
        SecretStatus update(const SecretQuery& query, ByteView data) override {
            return machine.secrets.update(query, data);
        }
        SecretStatus remove(const SecretQuery& query) override { return machine.secrets.remove(query); }
        std::optional<std::vector<std::string>> accessGroups() override { return machine.secrets.accessGroups(); }
        std::string errorMessage(SecretStatus status) override { return machine.secrets.errorMessage(status); }

    private:
        FakeDesktopMachine& machine;
    };

    class Services : public DesktopServices {
    public:
        explicit Services(FakeDesktopMachine& machine) : machine(machine) {}
        ~Services() override {
            machine.note("destroy services" + std::string(machine.isFolderTaken() ? ", the folder is taken" : "") +
                         ", " + std::to_string(openWindowCount()) + " windows");
            machine.trouble = {};
            machine.drained = {};
            machine.notificationActivated = {};
            machine.signalled = {};
            machine.sessionEnding = {};
        }

        const Host& host() override { return machine.host; }
        UserDefaults& userDefaults() override { return machine.defaults; }
        Lifecycle& lifecycle() override { return _lifecycle; }
        SoundPlayer& sounds() override { return machine.soundPlayer; }
        std::optional<std::string> environmentVariable(const char* name) override {
            const auto found = machine.variables.find(name);
            return found == machine.variables.end() ? std::nullopt : std::optional(found->second);
        }

        Internets& internets() override { return _internets; }
        void setEndpointUrl(const std::string& url) override { machine.note("watch the way to " + url); }
        Transport& transport() override { return machine.transport; }
        void onTrouble(std::function<void(const std::string&)> tell) override { machine.trouble = std::move(tell); }
        void drain(Seconds atMost, std::function<void()> then) override {
            machine.note("drain for " + std::to_string(static_cast<int>(atMost)) + " s");
            machine.drained = std::move(then);
        }

        NotificationCenter& notifications() override { return machine.notificationCenter; }
        void onNotificationActivated(std::function<void(const ActivationToken&)> activated) override {
            machine.notificationActivated = std::move(activated);
        }
        void markWindow(QWidget& window) override { machine.note("mark " + window.windowTitle().toStdString()); }

        Worker& secretWorker() override { return machine.keyWorker; }
        std::shared_ptr<Worker> pictureWorker() override { return machine.imageWorker; }

        void onSignal(std::function<void()> came) override { machine.signalled = std::move(came); }
        void onSessionEnding(std::function<void()> ending) override { machine.sessionEnding = std::move(ending); }

        std::unique_ptr<UpdateKit> makeUpdateKit(const Url& manifestUrl) override {
            machine.note("look for updates at " + manifestUrl.text());
            return std::make_unique<UpdateKit>(machine._loop, machine.updaterLoop, machine.defaults, manifestUrl,
                                               machine.updates.environment());
        }
        std::future<void> registerProgram() override {
            machine.note("register");
            // Done by whoever waits for it.
            return std::async(std::launch::deferred, [&noted = machine] { noted.note("registered"); });
        }

    private:
        FakeDesktopMachine& machine;
        Internets _internets{machine._loop, machine.path.monitor()};
        Lifecycle _lifecycle{machine._loop, machine.application.activity()};
    };

    void note(std::string what) { done.push_back(std::move(what)); }
};
