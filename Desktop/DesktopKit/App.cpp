#include "DesktopKit/App.h"

#include "Base/Check.h"
#include "DesktopKit/Alert.h"
#include "DesktopKit/KeyExport.h"
#include "DesktopViews/Look.h"
#include "PlatformDesktop/CameraProcess.h"
#include "QtText/QtText.h"
#include "ScanKit/WatchedCamera.h"
#include "StateKit/Log.h"
#include "Text/Text.h"
#include "TranscriptKit/DisplayText.h"

#include <QApplication>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {

const Log updateLog("zorvane.Vimble", "App");

constexpr char keepsWindows[] = "NSQuitAlwaysKeepsWindows";

void alertAboutKeys(const std::string& detail) {
    Alert(QMessageBox::Critical, QStringLiteral("Could not access the keychain"),
          QStringLiteral("Vimble could not read or update the “Vimble Identity Secret Key” item in the "
                         "keychain.\n\n") +
              DisplayText::message(detail))
        .exec();
}

void centre(QWidget& window) {
    const QScreen* screen = window.screen();
    if (screen == nullptr) return;
    QRect frame(QPoint(), window.size());
    frame.moveCenter(screen->availableGeometry().center());
    window.move(frame.topLeft());
}

}  // namespace

App::App(AppEnvironment environment) : environment(std::move(environment)) {}

App::~App() = default;

bool App::applicationWillFinishLaunching() {
    // Read the keys before anything uses the engine: it can't start without them, and can't tell the user so.
    try {
        Keys::loadOrGenerate(environment.secrets);
    } catch (const KeysError& error) {
        alertAboutKeys(error.reason());
        return false;
    }
    menu = std::make_unique<MainMenu>(commands(), [this] { return look(); });
    restoration = std::make_unique<WindowRestoration>(environment.loop, environment.folder);
    restoration->keep(PrefsWindow::identifier);
    keys.emplace(environment.loop, environment.secrets, environment.worker);

    // The fonts need nothing of the saved state, so load them while that may still be read.
    Look::loadFonts();
    Kit& kit = environment.kit();
    _rosterWindow = std::make_unique<RosterWindow>(kit);
    if (environment.updater) _rosterWindow->rosterVC().observeUpdates(*environment.updater, environment.loop);
    adopt(*_rosterWindow, RosterWindow::restorationIdentifier);
    _consoleWindow = std::make_unique<ConsoleWindow>(kit, environment.host.bundleInfo("CFBundleShortVersionString"),
                                                     [this] { return environment.loop.now(); });
    adopt(*_consoleWindow, ConsoleWindow::identifier);
    _roomWindow = std::make_unique<RoomWindow>(kit, environment.loop);
    adopt(*_roomWindow, RoomWindow::identifier);
    _chatterWindows = std::make_unique<ChatterWindows>(kit, environment.loop);
    attention = std::make_unique<WindowAttention>(kit, environment.lifecycle, *_rosterWindow, *_roomWindow,
                                                  *_chatterWindows, environment.alert);
    _notifier = std::make_unique<Notifier>(NotifierEnvironment{
        environment.loop, kit, environment.userDefaults, environment.sounds, environment.notifications, *attention});
    _notifier->start();
    environment.lifecycle.subscribe(*this, [](App& self, const Lifecycle::Event& event) {
        if (event == Lifecycle::Event::enteredForeground) self.applicationDidBecomeActive();
    });

    _rosterWindow->setDelegate(this);
    _rosterWindow->setOpenRoom([this] { openRoom(); });
    environment.userDefaults.setBool(keepsWindows, true);
    restoreWindows();
    return true;
}

void App::applicationDidFinishLaunching() {
    RosterWindow& window = rosterWindow();
    window.setAttribute(Qt::WA_ShowWithoutActivating, QGuiApplication::focusWindow() != nullptr);
    // Show it even if the last run left it minimised, as closing does without a tray: a user who starts the program
    // wants to see it.
    window.show();
    window.raise();
    window.setAttribute(Qt::WA_ShowWithoutActivating, false);

    trayContents = std::make_unique<QMenu>();
    menu->fill(*trayContents);
    tray = std::make_unique<TrayMenu>(*trayContents, [this] { showRosterWindow(); });

    if (AppUpdater* updater = environment.updater) {
        updater->observeState(*this, [](App& self, const UpdateState& state) { self.updateStateChanged(state); });
        updater->start();
    }
}

void App::updateStateChanged(const UpdateState& state) {
    menu->refresh();
    if (!state.failure) return;
    updateLog.error(std::string("UpdateKit failure (") + name(state.failure->category) +
                    "): " + Text::escaped(state.failure->summary));
    environment.updater->dismissFailure();
}

void App::openUrls(const QStringList& urls, const ActivationToken& token) {
    if (!urls.isEmpty()) activate(token);
}

void App::activate(const ActivationToken& token) { showRosterWindow(token); }

void App::applicationDidBecomeActive() { notifier().clearNotifications(); }

void App::applicationWillTerminate() {
    isEnding = true;
    if (_notifier) _notifier->stop();
    if (restoration) restoration->finish();
    if (keys) keys->abandon();
}

// ---- commands

MainMenu::Commands App::commands() {
    return {.orderFrontPreferences = [this] { orderFrontPreferences(); },
            .checkForUpdates = environment.updater ? [this] { checkForUpdates(); } : std::function<void()>(),
            .disconnect = [this] { disconnect(); },
            .toggleRosterWindow = [this] { toggleRosterWindow(); },
            .toggleConsoleWindow = [this] { toggleConsoleWindow(); },
            .toggleRoomWindow = [this] { toggleRoomWindow(); },
            .close =
                [] {
                    if (QWidget* window = QApplication::activeWindow()) window->close();
                },
            .quit = environment.quit,
            .about = [this] { showAbout(); },
            .talks = [this] { return talks(); }};
}

std::vector<MainMenu::Talk> App::talks() {
    constexpr std::size_t most = 30;
    if (!_chatterWindows) return {};
    const State& state = environment.kit().state();
    std::vector<std::pair<Date, const std::string*>> keys;
    for (const auto& [key, chat] : state.conversations)
        if (!chat.messages.empty()) keys.emplace_back(chat.messages.back().timestamp, &key);
    // Sort by the last message, the latest first.
    std::sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? b.first < a.first : *a.second < *b.second;
    });
    if (keys.size() > most) keys.resize(most);
    std::vector<MainMenu::Talk> talks;
    for (const auto& [date, key] : keys) {
        const Person* person = state.people.find(*key);
        const Chat& chat = *state.conversations.find(*key);
        QString title = DisplayText::person(person != nullptr ? *person : Person{*key, "", "", false, false});
        const auto unread = static_cast<std::int64_t>(chat.messages.size()) - chat.readCount;
        if (unread > 0 && chatterWindows().existing(*key) == nullptr) title += QStringLiteral(" (%1)").arg(unread);
        talks.push_back({title, [this, key = *key] { openConversation(key); }});
    }
    return talks;
}

MainMenu::Look App::look() const {
    return {.isRosterVisible = _rosterWindow && _rosterWindow->isVisible(),
            .isConsoleVisible = _consoleWindow && _consoleWindow->isVisible(),
            .isRoomVisible = _roomWindow && _roomWindow->isVisible(),
            .canCheckForUpdates = environment.updater && environment.updater->state().isConfigured,
            .canDisconnect = _rosterWindow && environment.kit().state().connection != Connection::setup};
}

void App::orderFrontPreferences() {
    if (!isEnding) showForward(prefsWindow());
}

void App::checkForUpdates() {
    // The updater shows its progress in the People window, so open that if it is closed.
    if (environment.updater->state().isConfigured && !rosterWindow().isVisible()) showRosterWindow();
    environment.updater->checkForUpdates();
}

void App::disconnect() { environment.kit().disconnect(); }

void App::toggleRosterWindow() { toggle(rosterWindow()); }

void App::toggleConsoleWindow() { toggle(consoleWindow()); }

void App::toggleRoomWindow() { toggle(roomWindow()); }

void App::toggle(QWidget& window) {
    if (!window.isVisible() || window.isMinimized())
        showForward(window);
    else
        window.close();  // the same as the user's close: it is minimised where no tray could bring it back
}

void App::showRosterWindow(const ActivationToken& token) { showForward(rosterWindow(), token); }

void App::openRoom() { showForward(roomWindow()); }

void App::openConversation(const Person& person) { openConversation(person.publicKey); }

void App::openConversation(const std::string& key) {
    ChatterWindow* window = chatterWindows().existing(key);
    if (window == nullptr) {
        window = &chatterWindows().make(key);
        adopt(*window, window->identifier(), key);
    }
    showForward(*window);
}

void App::showTrouble(const std::string& text) { rosterWindow().showTrouble(text); }

void App::showAbout() {
    auto* box = new QMessageBox(QApplication::activeWindow());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIconPixmap(QApplication::windowIcon().pixmap(64));
    box->setTextFormat(Qt::PlainText);
    box->setWindowTitle(tr("About Vimble"));
    box->setText(QStringLiteral("Vimble ") +
                 toQt(environment.host.bundleInfo("CFBundleShortVersionString").value_or("0.0")));
    box->setInformativeText(
        tr("A chat for a small closed group. Every text is sealed for each of its readers before it leaves this "
           "machine."));
    // A message box is made modal, and open() would make it modal again: so make it non-modal and use show().
    box->setWindowModality(Qt::NonModal);
    box->show();
}

RosterWindow& App::rosterWindow() const {
    check(_rosterWindow != nullptr, "the People window is used before it is made");
    return *_rosterWindow;
}

ConsoleWindow& App::consoleWindow() const {
    check(_consoleWindow != nullptr, "the console window is used before it is made");
    return *_consoleWindow;
}

RoomWindow& App::roomWindow() const {
    check(_roomWindow != nullptr, "the room window is used before it is made");
    return *_roomWindow;
}

ChatterWindows& App::chatterWindows() const {
    check(_chatterWindows != nullptr, "the windows of talks are used before there can be any");
    return *_chatterWindows;
}

Notifier& App::notifier() const {
    check(_notifier != nullptr, "the notifier is used before it is made");
    return *_notifier;
}

PrefsWindow& App::prefsWindow() {
    if (_prefsWindow) return *_prefsWindow;
    _prefsWindow = std::make_unique<PrefsWindow>(PrefsEnvironment{
        .loop = environment.loop,
        .pictureWorker = environment.pictureWorker,
        .keys = *keys,
        .notifier = notifier(),
        .makeCamera =
            [this] {
                return std::make_unique<WatchedCamera>(environment.loop,
                                                       std::make_unique<CameraProcess>(CameraProcess::installed()));
            },
        .exportKey = [this](const SecretKey& key,
                            QWidget& parent) { KeyExport(key.duplicate()).print(parent.window(), environment.host); }});
    menu->attachShortcuts(*_prefsWindow);
    // Do not adopt it. It may be closed even if it is the last window. And while only it is open, the last adopted
    // window must still not be closed, since nothing in the settings would bring that back.
    _prefsWindow->installEventFilter(this);
    const WindowRecord* record = restoration->remembered(PrefsWindow::identifier);
    if (record == nullptr || !WindowRestoration::place(*_prefsWindow, *record)) centre(*_prefsWindow);
    restoration->watch(*_prefsWindow, PrefsWindow::identifier);
    return *_prefsWindow;
}

// ---- windows

void App::adopt(QMainWindow& window, const std::string& identifier, const std::string& withKey) {
    const QSize content = window.size();
    const QSize smallest = window.minimumSize();
    menu->attach(window);
    // The sizes that a window asks for leave out its menu bar, so add the bar's height.
    const QSize bar(0, window.menuBar()->isNativeMenuBar() ? 0 : window.menuBar()->sizeHint().height());
    window.setMinimumSize(smallest + bar);
    window.resize(content + bar);
    adopted.push_back(&window);
    connect(&window, &QObject::destroyed, this, [this](QObject* gone) {
        std::erase_if(adopted, [gone](const QMainWindow* each) { return each == gone; });
    });
    window.installEventFilter(this);
    if (withKey.empty()) {
        const WindowRecord* record = restoration->remembered(identifier);
        if (record == nullptr || !WindowRestoration::place(window, *record)) centre(window);
    }
    restoration->watch(window, identifier, withKey);
}

void App::restoreWindows() {
    const auto show = [](QWidget& window, const WindowRecord& record) {
        window.setAttribute(Qt::WA_ShowWithoutActivating);
        record.isMinimized ? window.showMinimized() : window.show();
        window.setAttribute(Qt::WA_ShowWithoutActivating, false);
    };
    for (const WindowRecord& record : restoration->remembered()) {
        if (!record.isOpen) continue;
        if (record.identifier == ConsoleWindow::identifier) {
            show(consoleWindow(), record);
        } else if (record.identifier == RoomWindow::identifier) {
            show(roomWindow(), record);
        } else if (!record.withKey.empty() && chatterWindows().existing(record.withKey) == nullptr) {
            ChatterWindow& window = chatterWindows().make(record.withKey);
            adopt(window, window.identifier(), record.withKey);
            WindowRestoration::place(window, record);
            show(window, record);
        }
    }
}

void App::showForward(QWidget& window, const ActivationToken& token) {
    // Sending the last texts may take seconds, in which the tray icon can still be clicked.
    if (isEnding) return;
    environment.bringForward(window, token);
    menu->refresh();
}

bool App::isLastOpen(const QWidget& window) const {
    return std::none_of(adopted.begin(), adopted.end(),
                        [&window](const QMainWindow* other) { return other != &window && other->isVisible(); });
}

bool App::eventFilter(QObject* object, QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange && object->isWidgetType()) {
        // The toolkit tells only the windows that the desktop's font has changed, but their child widgets compute
        // sizes from that font too.
        for (QWidget* child : static_cast<QWidget*>(object)->findChildren<QWidget*>()) {
            QEvent change(QEvent::ApplicationFontChange);
            QCoreApplication::sendEvent(child, &change);
        }
    }
    if (object == _roomWindow.get() &&
        (event->type() == QEvent::Show || event->type() == QEvent::Hide || event->type() == QEvent::WindowStateChange))
        rosterWindow().rosterVC().setRoomOpen(_roomWindow->isVisible() && !_roomWindow->isMinimized());
    if (event->type() == QEvent::Close && !isEnding) {
        auto* window = qobject_cast<QMainWindow*>(object);
        if (window != nullptr && window->isVisible() && isLastOpen(*window) && !(tray && tray->isShown())) {
            event->ignore();
            window->showMinimized();
            return true;
        }
    }
    return QObject::eventFilter(object, event);
}
