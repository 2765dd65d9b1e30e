#include "PlatformInstaller/InstallerXPCListener.h"

#include "StateKit/Log.h"
#include "Text/Text.h"
#include "UpdateKit/InstallerXPC.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QTimer>
#include <QVariant>

#include <exception>
#include <string>
#include <utility>

namespace {

/// How long the bus may take to confirm that it has received our answer.
constexpr int flushMs = 5000;

const Log serviceLog("UpdateKitInstaller", "service");

QVariantList wordsOf(const InstallerReply& reply) {
    QStringList message;
    if (reply.errorMessage) message.append(QString::fromStdString(*reply.errorMessage));
    return {message, reply.shouldPresentToUser};
}

std::string described(const InstallerLaunchRequest& request) {
    return Text::escaped(request.currentApp.native()) + " by " + Text::escaped(request.stagedApp.native()) +
           ", for process " + std::to_string(request.currentProcessIdentifier);
}

}  // namespace

InstallerXPCListener::InstallerXPCListener(const QDBusConnection& bus, Work work, std::function<void()> ended,
                                           std::chrono::milliseconds idle)
    : bus(bus), work(std::move(work)), ended(std::move(ended)) {
    QTimer::singleShot(idle, this, [this] {
        if (isBusy) return;
        serviceLog.info("nobody asks for anything");
        end();
    });
}

InstallerXPCListener::~InstallerXPCListener() {
    if (worker.joinable()) worker.join();
}

QString InstallerXPCListener::listen(const QString& serviceName) {
    name = serviceName;
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"), QStringLiteral("org.freedesktop.DBus.Local"),
                QStringLiteral("Disconnected"), this, SLOT(busHasGone()));
    // Register the object first: a caller that finds the name expects the object to be there.
    if (!bus.registerObject(QLatin1String(InstallerXPC::objectPath), this, QDBusConnection::ExportNonScriptableSlots))
        return QStringLiteral("the object can't be shown on the bus");
    if (bus.registerService(name)) return {};
    const QString why = bus.lastError().message();
    return QStringLiteral("the name %1 is not to be had%2").arg(name, why.isEmpty() ? why : QStringLiteral(": ") + why);
}

QStringList InstallerXPCListener::InstallUpdate(const QString& stagedAppUrl, const QString& currentAppUrl,
                                                int currentProcessIdentifier, bool& shouldPresentToUser) {
    shouldPresentToUser = false;
    std::string refusal;
    try {
        const InstallerLaunchRequest request = InstallerXPC::launchRequest(
            stagedAppUrl.toStdString(), currentAppUrl.toStdString(), currentProcessIdentifier);
        if (!isBusy) {
            setDelayedReply(true);
            begin(request, message());
            return {};
        }
        refusal = "Another update is being installed";
    } catch (const std::exception& error) {
        refusal = Text::escaped(error.what());
    }
    serviceLog.error("refused a request: " + refusal);
    return {QString::fromStdString(refusal)};
}

void InstallerXPCListener::begin(const InstallerLaunchRequest& request, const QDBusMessage& call) {
    isBusy = true;
    serviceLog.info("replacing " + described(request));
    worker = std::thread([this, request, call] {
        const InstallerReply reply = work(request);
        if (reply.errorMessage)
            serviceLog.error("did not replace " + described(request) + ": " + Text::escaped(*reply.errorMessage));
        else
            serviceLog.info("replaced " + described(request));
        QMetaObject::invokeMethod(
            this, [this, call, reply] { finish(call, reply); }, Qt::QueuedConnection);
    });
}

void InstallerXPCListener::finish(const QDBusMessage& call, const InstallerReply& reply) {
    bus.unregisterService(name);
    // Calls that reached this service before are in the event loop's queue by now, and are answered before what is
    // queued here.
    QMetaObject::invokeMethod(
        this,
        [this, call, reply] {
            bus.send(call.createReply(wordsOf(reply)));
            // The process ends soon, and `send` only leaves the answer to a thread of Qt's. Once the bus has answered
            // this ping, our answer has arrived too.
            bus.call(QDBusMessage::createMethodCall(
                         QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                         QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping")),
                     QDBus::Block, flushMs);
            end();
        },
        Qt::QueuedConnection);
}

void InstallerXPCListener::busHasGone() {
    if (isBusy) return;
    serviceLog.info("the session bus has gone");
    end();
}

void InstallerXPCListener::end() {
    if (const auto tell = std::exchange(ended, {})) tell();
}
