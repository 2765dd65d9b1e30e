#include "PlatformDesktop/FreedesktopNotifications.h"

#include "QtText/QtText.h"
#include "StateKit/Log.h"

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <QStandardPaths>

#include <algorithm>

namespace {

constexpr char serviceName[] = "org.freedesktop.Notifications";
constexpr char path[] = "/org/freedesktop/Notifications";
constexpr char interface[] = "org.freedesktop.Notifications";
constexpr char applicationName[] = "Vimble";
constexpr char applicationId[] = "zorvane.Vimble";  // the name of the desktop file and of the icon
constexpr int pictureSide = 64;                     // pixels
constexpr int serviceDecides = -1;                  // the timeout: the service decides when the bubble closes

const Log bubbleLog("zorvane.Vimble", "FreedesktopNotifications");

QDBusMessage call(const char* method) {
    return QDBusMessage::createMethodCall(QLatin1String(serviceName), QLatin1String(path), QLatin1String(interface),
                                          QLatin1String(method));
}

}  // namespace

/// The value of the hint "image-data".
struct NotificationPicture {
    QImage image;  // RGBA8888

    friend QDBusArgument& operator<<(QDBusArgument& argument, const NotificationPicture& picture) {
        const QImage& image = picture.image;
        constexpr bool hasAlpha = true;
        constexpr int bitsPerSample = 8;
        constexpr int channels = 4;
        argument.beginStructure();
        argument << image.width() << image.height() << static_cast<int>(image.bytesPerLine()) << hasAlpha
                 << bitsPerSample << channels
                 << QByteArray(reinterpret_cast<const char*>(image.constBits()), image.sizeInBytes());
        argument.endStructure();
        return argument;
    }

    /// Qt requires this operator too, but we never receive a picture.
    friend const QDBusArgument& operator>>(const QDBusArgument& argument, NotificationPicture&) { return argument; }
};
Q_DECLARE_METATYPE(NotificationPicture)

namespace {

bool hasInstalledIcon() {
    const QString icons =
        QStringLiteral("icons/hicolor/%1/apps/%2").arg(QStringLiteral("48x48"), QLatin1String(applicationId));
    return !QStandardPaths::locate(QStandardPaths::GenericDataLocation, icons + QStringLiteral(".png")).isEmpty();
}

}  // namespace

FreedesktopNotifications::FreedesktopNotifications(MainLoop& loop, QDBusConnection bus)
    : loop(loop), bus(std::move(bus)) {
    if (!this->bus.isConnected()) return;
    qDBusRegisterMetaType<NotificationPicture>();
    const QString name = QLatin1String(serviceName);
    watcher.setConnection(this->bus);
    watcher.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    watcher.addWatchedService(name);
    connect(&watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &FreedesktopNotifications::ownerChanged);
    const auto listen = [&](const char* signal, const char* slot) {
        this->bus.connect(name, QLatin1String(path), QLatin1String(interface), QLatin1String(signal), this, slot);
    };
    listen("NotificationClosed", SLOT(closed(uint, uint)));
    listen("ActivationToken", SLOT(tokenGiven(uint, QString)));
    listen("ActionInvoked", SLOT(actionInvoked(uint, QString)));
}

FreedesktopNotifications::~FreedesktopNotifications() { removeAllPending(); }

void FreedesktopNotifications::onActivated(std::function<void(const ActivationToken&)> handler) {
    activated = std::move(handler);
}

void FreedesktopNotifications::add(UserNotification notification, Seconds delay) {
    if (!bus.isConnected()) return;
    // Ask now, so that the answer is likely to be there when the delay is over.
    if (asking == Asking::notAsked) askCapabilities();
    const auto timer = std::make_shared<MainLoop::TimerId>();
    *timer = loop.startTimer(delay, [this, timer, notification = std::move(notification)]() mutable {
        pending.erase(*timer);
        deliver(std::move(notification));
    });
    pending.insert(*timer);
}

void FreedesktopNotifications::removeAllPending() {
    for (const MainLoop::TimerId timer : std::exchange(pending, {})) loop.cancelTimer(timer);
}

void FreedesktopNotifications::removeAllDelivered() {
    waiting.clear();
    for (Sent& sent : inFlight) sent.isUnwanted = true;
    for (const uint id : std::exchange(shown, {})) close(id);
}

void FreedesktopNotifications::deliver(UserNotification notification) {
    waiting.push_back(std::move(notification));
    if (waiting.size() > mostWaiting) waiting.pop_front();
    if (asking == Asking::notAsked) askCapabilities();
    sendWaiting();
}

void FreedesktopNotifications::askCapabilities() {
    asking = Asking::asked;
    auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(call("GetCapabilities"), patience), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, asked = service] {
        answer->deleteLater();
        if (asked != service) return;
        const QDBusPendingReply<QStringList> reply = *answer;
        if (!reply.isValid()) {
            bubbleLog.debug("Nobody shows notifications: " + fromQt(reply.error().message()));
            asking = Asking::notAsked;
            waiting.clear();
            return;
        }
        abilities = NotificationAbilities::from(reply.value());
        asking = Asking::answered;
        sendWaiting();
    });
}

void FreedesktopNotifications::sendWaiting() {
    while (asking == Asking::answered && !waiting.empty() && inFlight.size() < mostInFlight) {
        const UserNotification next = std::move(waiting.front());
        waiting.pop_front();
        send(next);
    }
}

void FreedesktopNotifications::send(const UserNotification& notification) {
    NotificationBubble bubble = NotificationBubble::from(notification, abilities, QLatin1String(applicationId));
    QString icon;
    addIcon(icon, bubble.hints);
    QDBusMessage notify = call("Notify");
    constexpr uint nothingReplaced = 0;
    notify << QLatin1String(applicationName) << nothingReplaced << icon << bubble.summary << bubble.body
           << bubble.actions << bubble.hints << serviceDecides;
    const auto sent = inFlight.emplace(inFlight.end());
    auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(notify, patience), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, sent, by = service] {
        answer->deleteLater();
        if (by != service) return;
        const bool isUnwanted = sent->isUnwanted;
        inFlight.erase(sent);
        const QDBusPendingReply<uint> reply = *answer;
        if (!reply.isValid())
            bubbleLog.debug("A notification was not shown: " + fromQt(reply.error().message()));
        else if (isUnwanted)
            close(reply.value());
        else
            keep(reply.value());
        sendWaiting();
    });
}

void FreedesktopNotifications::keep(uint id) {
    shown.push_back(id);
    if (shown.size() <= mostShown) return;
    close(shown.front());
    shown.pop_front();
}

void FreedesktopNotifications::close(uint id) {
    QDBusMessage message = call("CloseNotification");
    message << id;
    // Do not start a service for this: a new one would not know the bubble.
    message.setAutoStartService(false);
    bus.send(message);
}

void FreedesktopNotifications::addIcon(QString& name, QVariantMap& hints) const {
    if (hasInstalledIcon()) {
        name = QLatin1String(applicationId);
        return;
    }
    if (!abilities.picture) return;
    const QImage image = QGuiApplication::windowIcon().pixmap(pictureSide).toImage();
    if (image.isNull()) return;
    hints.insert(QStringLiteral("image-data"),
                 QVariant::fromValue(NotificationPicture{image.convertToFormat(QImage::Format_RGBA8888)}));
}

void FreedesktopNotifications::closed(uint id, uint) { std::erase(shown, id); }

void FreedesktopNotifications::tokenGiven(uint id, const QString& given) {
    if (std::find(shown.begin(), shown.end(), id) != shown.end()) token = {id, ActivationToken::checked(given)};
}

void FreedesktopNotifications::actionInvoked(uint id, const QString& key) {
    if (key != QLatin1String(NotificationBubble::defaultAction)) return;
    if (std::find(shown.begin(), shown.end(), id) == shown.end()) return;
    const auto [tokenId, text] = std::exchange(token, {});
    // The token is one for Wayland or one for X11, which only the service knows: set both.
    const ActivationToken given = tokenId == id ? ActivationToken{text, text} : ActivationToken{};
    const auto handler = activated;
    if (handler) handler(given);
}

void FreedesktopNotifications::ownerChanged(const QString&, const QString& before, const QString&) {
    // Do nothing when a service comes up after there was none: the bus may have started it for our own call.
    if (!before.isEmpty()) forgetService();
}

void FreedesktopNotifications::forgetService() {
    service++;
    asking = Asking::notAsked;
    abilities = {};
    waiting.clear();
    inFlight.clear();
    shown.clear();
    token = {};
}
