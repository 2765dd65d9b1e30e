#include "DesktopKit/DesktopProgram.h"

#include "QtText/QtText.h"
#include "StateKit/Log.h"
#include "StateKit/SignalTarget.h"
#include "Text/Text.h"
#include "VimbleKit/State.h"

#include <QApplication>

#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

const Log programLog("zorvane.Vimble", "main");

}  // namespace

/// Tells the watch of the network which server is in use.
class DesktopProgram::EndpointWatch : public SignalTarget {
public:
    struct LocalState {
        using StateType = State;
        explicit LocalState(const State* state) : endpoint(state != nullptr ? state->endpoint : std::nullopt) {}
        bool operator==(const LocalState&) const = default;

        std::optional<Endpoint> endpoint;
    };

    EndpointWatch(Kit& kit, DesktopServices& services) : services(services) {
        kit.observeModel<LocalState>(*this, [](EndpointWatch& self, const LocalState& state) {
            if (state.endpoint) self.services.setEndpointUrl(state.endpoint->url());
        });
    }

private:
    DesktopServices& services;
};

DesktopProgram::DesktopProgram(DesktopStart start, DesktopMachine& machine)
    : machine(machine), start(std::move(start)) {}

DesktopProgram::~DesktopProgram() = default;

DesktopProgram::Ending DesktopProgram::run(const std::function<int()>& turnLoop) {
    if (const auto status = begin()) return {.status = *status};
    // Do not turn the loop if we have left it already: an exit that was asked for before it turns is lost.
    return end(phase == Phase::left ? 0 : turnLoop());
}

// ---- the beginning

std::optional<int> DesktopProgram::begin() {
    if (const auto* trouble = std::get_if<FolderTrouble>(&start.folder)) throw std::runtime_error(trouble->text);
    if (const auto status = takePlace()) return status;
    showDialogToLaterStarts();
    secrets.emplace(UserSecretsEnvironment{
                        .loop = machine.loop(),
                        .makeStore =
                            [this](const auto& file, SealedFileStore::AskPassphrase ask) {
                                return machine.makeSecretStore(file, std::move(ask));
                            },
                        .askUser = [this](SealedFileStore::Reason reason, const auto& file,
                                          bool wasWrong) { return machine.askPassphrase(reason, file, wasWrong); }},
                    start.secretFile, std::move(start.passphrase));
    if (!secrets->unlock()) return 1;

    services = machine.makeServices(folder->folder());
    makeUpdater();
    watchForTheEnd();
    App& windows = makeApp();
    if (!windows.applicationWillFinishLaunching()) return 1;
    windows.applicationDidFinishLaunching();
    registration = services->registerProgram();
    listen();
    return std::nullopt;
}

/// Makes sure that this is the only program for the folder. @return the exit status if it is not
std::optional<int> DesktopProgram::takePlace() {
    if (auto* taken = std::get_if<std::unique_ptr<RememberedFolder>>(&start.folder)) {
        folder = std::move(*taken);
        // Go on without the bus name: we hold the folder, and an old process that still has the name is ending.
        if (machine.claim({}, {}, nameTime) != SingleInstance::Outcome::first)
            programLog.info("Nobody will find this program over the session bus. " + fromQt(machine.claimError()));
        return std::nullopt;
    }
    QStringList urls;
    for (const std::string& url : start.urls) urls.append(toQt(url));
    switch (machine.claim(urls, start.token, SingleInstance::patience)) {
        case SingleInstance::Outcome::forwarded:
            if (start.server) machine.complain("Vimble runs already for this data, and stays with its server");
            return 0;
        case SingleInstance::Outcome::noAnswer:
            machine.alert("Vimble runs already, and does not answer", fromQt(machine.claimError()));
            return 1;
        case SingleInstance::Outcome::noBus: throw std::runtime_error(std::get<FolderInUse>(start.folder).text);
        case SingleInstance::Outcome::first:
            // The program that held the folder has ended meanwhile, or it is not Vimble: then this throws.
            folder = std::make_unique<RememberedFolder>(start.dataDir, machine.loop().now());
            break;
    }
    return std::nullopt;
}

/// Until there is a window, a second start brings the open dialog forward.
void DesktopProgram::showDialogToLaterStarts() {
    const auto showDialog = [this](const ActivationToken& token) {
        if (QWidget* dialog = QApplication::activeModalWidget()) machine.bringForward(*dialog, token);
    };
    machine.setHandlers(
        {.activate = showDialog,
         .open = [showDialog](const QStringList&, const ActivationToken& token) { showDialog(token); }});
}

void DesktopProgram::makeUpdater() {
    updater.emplace(AppUpdaterEnvironment{
        .loop = machine.loop(),
        .variable = [this](const char* name) { return services->environmentVariable(name); },
        .bundleInfo = [this](std::string_view key) { return services->host().bundleInfo(key); },
        .makeUpdateKit = [this](const Url& manifestUrl) { return services->makeUpdateKit(manifestUrl); }});
}

void DesktopProgram::watchForTheEnd() {
    services->onSignal([this] {
        isAttended = false;
        quit();
    });
    // Save now, since the session may end without further notice. Do not quit, since the user may call the end of
    // the session off, and then the program goes on.
    services->onSessionEnding([this] {
        try {
            if (kit) kit->save();
        } catch (const std::exception& error) {
            programLog.error(error.what());
        }
    });
    quitRequests.emplace([this] { quit(); });
}

App& DesktopProgram::makeApp() {
    return app.emplace(AppEnvironment{
        .loop = machine.loop(),
        .secrets = secrets->store(),
        .worker = services->secretWorker(),
        .pictureWorker = services->pictureWorker(),
        .kit = [this]() -> Kit& { return startedKit(); },
        .host = services->host(),
        .folder = folder->folder().path(),
        .userDefaults = services->userDefaults(),
        .lifecycle = services->lifecycle(),
        .notifications = services->notifications(),
        .sounds = services->sounds(),
        .alert = [this](QWidget& window) { services->markWindow(window); },
        .bringForward = [this](QWidget& window, const ActivationToken& token) { machine.bringForward(window, token); },
        .quit = [this] { quit(); },
        .updater = &*updater});
}

Kit& DesktopProgram::startedKit() {
    if (kit) return *kit;
    kit.emplace(KitEnvironment{machine.loop(), services->internets(), secrets->store(), services->transport(),
                               services->host(), folder->folder().path(), [this] { return folder->takeState(); }});
    if (start.server) kit->setEndpoint(*start.server);
    endpointWatch = std::make_unique<EndpointWatch>(*kit, *services);
    services->internets().start();
    if (start.server) kit->connect();
    return *kit;
}

void DesktopProgram::listen() {
    services->onTrouble([this](const std::string& text) {
        programLog.info(text);
        app->showTrouble(text);
    });
    services->onNotificationActivated([this](const ActivationToken& token) { app->activate(token); });
    machine.setHandlers(
        {.activate = [this](const ActivationToken& token) { app->activate(token); },
         .open = [this](const QStringList& urls, const ActivationToken& token) { app->openUrls(urls, token); }});
}

// ---- the end

/// Begins to end the program and makes the loop stop; `end` does the rest.
void DesktopProgram::quit() {
    if (phase != Phase::running) return;
    phase = Phase::ending;
    secrets->close();
    // From here on a second start must not be handed to this process, which is ending.
    machine.beginEnding();
    if (app) app->applicationWillTerminate();
    for (QWidget* window : QApplication::topLevelWidgets()) window->hide();
    // Texts that the user has just sent may not have left this machine yet.
    if (kit && kit->canSend())
        services->drain(drainTime, [this] { leave(); });
    else
        leave();
}

void DesktopProgram::leave() {
    phase = Phase::left;
    machine.leaveLoop();
}

DesktopProgram::Ending DesktopProgram::end(int status) {
    listenNoMore();
    app->applicationWillTerminate();
    secrets->close();
    app.reset();
    // Texts that came during the end are proved to the relay, which forgets them, so they exist only here: deliver them
    // before saving.
    QCoreApplication::sendPostedEvents();
    if (!save()) status = 1;
    const bool isStoreDone = services->secretWorker().finish(keyTime);
    if (!isStoreDone) programLog.error("The secret store does not answer, and is not waited for");
    const bool isPictureDone = services->pictureWorker()->finish(pictureTime);
    if (!isStoreDone || !isPictureDone) return {.status = status, .isThreadBusy = true};
    if (registration.valid()) registration.wait();
    quitRequests.reset();
    services->onSignal({});
    return {.status = status};
}

/// Drops all handlers, so that no event reaches an object that is being destroyed.
void DesktopProgram::listenNoMore() {
    services->onTrouble({});
    machine.setHandlers({.activate = [](const auto&) {}, .open = [](const auto&, const auto&) {}});
    services->onNotificationActivated({});
}

/// @return false if saving failed; the user has been told then
bool DesktopProgram::save() {
    try {
        kit->save();
        return true;
    } catch (const std::exception& error) {
        const std::string text = "What was said could not be saved";
        // Nobody is there to close a dialog when the session, or the machine, is going down.
        if (isAttended)
            machine.alert(text, error.what());
        else
            machine.complain(Text::escaped(text + ": " + error.what()));
        return false;
    }
}
