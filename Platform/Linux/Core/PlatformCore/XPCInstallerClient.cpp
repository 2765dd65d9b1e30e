#include "PlatformCore/XPCInstallerClient.h"

#include "QtText/QtText.h"
#include "UpdateKit/InstallerXPC.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <atomic>
#include <limits>
#include <utility>

namespace {

using Error = InstallerClientError;

constexpr char noConnection[] = "Unable to connect to installer service";

/// A connection that nobody else uses.
class OwnConnection {
public:
    explicit OwnConnection(const std::optional<std::string>& address)
        : name(QStringLiteral("installer client %1").arg(++count)),
          bus(address ? QDBusConnection::connectToBus(toQt(*address), name)
                      : QDBusConnection::connectToBus(QDBusConnection::SessionBus, name)) {}
    ~OwnConnection() { QDBusConnection::disconnectFromBus(name); }
    OwnConnection(const OwnConnection&) = delete;
    OwnConnection& operator=(const OwnConnection&) = delete;

private:
    static inline std::atomic<int> count = 0;
    const QString name;

public:
    const QDBusConnection bus;
};

/// Whether the connection is there, but the other end does not know the call.
bool isStranger(const QDBusError& error) {
    switch (error.type()) {
        case QDBusError::UnknownMethod:
        case QDBusError::UnknownInterface:
        case QDBusError::UnknownObject:
        case QDBusError::InvalidSignature: return true;
        default: return false;
    }
}

/// @throws InstallerClientError  unless the answer says that all is done
void judge(const QDBusMessage& answer) {
    if (answer.type() != QDBusMessage::ReplyMessage) {
        const QDBusError error(answer);
        if (isStranger(error)) throw Error::connectionFailed(noConnection);
        throw Error::connectionFailed(fromQt(error.message().isEmpty() ? error.name() : error.message()));
    }
    if (answer.signature() != QLatin1String(InstallerXPC::replySignature)) throw Error::connectionFailed(noConnection);
    const QStringList message = answer.arguments().at(0).toStringList();
    if (message.isEmpty()) return;
    throw Error::installationFailed(fromQt(message.first()), answer.arguments().at(1).toBool());
}

/// One request. If it is destroyed, the completion is not called.
class Request : public QObject {
public:
    Request(Completion<Done> completion, std::chrono::milliseconds limit) : completion(std::move(completion)) {
        QTimer::singleShot(limit, this, [this] {
            complete(Outcome<Done>::failure(Error::connectionFailed("The installer service did not answer in time")));
        });
    }

    /// @throws InstallerClientError
    void send(const QDBusMessage& call, const std::optional<std::string>& busAddress) {
        connection.emplace(busAddress);
        if (!connection->bus.isConnected())
            throw Error::connectionFailed(fromQt(connection->bus.lastError().message()));
        // The largest number means to wait as long as the connection stands. The limit is a timer of our own, so that
        // its error has a text of our own.
        const QDBusPendingCall pending = connection->bus.asyncCall(call, std::numeric_limits<int>::max());
        auto* const watcher = new QDBusPendingCallWatcher(pending);
        connect(this, &QObject::destroyed, watcher, &QObject::deleteLater);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
            const QDBusMessage answer = finished->reply();
            complete(Outcome<Done>::of([&] { judge(answer); }));
        });
    }

    void failLater(const Error& error) {
        QMetaObject::invokeMethod(
            this, [this, error] { complete(Outcome<Done>::failure(error)); }, Qt::QueuedConnection);
    }

private:
    void complete(Outcome<Done> outcome) {
        // Take the completion out before calling it: it may destroy this request.
        if (const auto tell = std::exchange(completion, {})) tell(std::move(outcome));
    }

    Completion<Done> completion;
    std::optional<OwnConnection> connection;
};

}  // namespace

XPCInstallerClient::XPCInstallerClient(const Host& host, std::optional<std::string> serviceNameOverride,
                                       std::optional<std::string> busAddress, std::chrono::milliseconds limit)
    : host(host),
      serviceNameOverride(std::move(serviceNameOverride)),
      busAddress(std::move(busAddress)),
      limit(limit) {}

std::shared_ptr<void> XPCInstallerClient::install(const InstallerRequest& request, Completion<Done> completion) {
    const auto pending = std::make_shared<Request>(std::move(completion), limit);
    try {
        const auto name = serviceNameOverride ? serviceNameOverride
                                              : InstallerXPC::serviceName(host.bundleInfo("CFBundleIdentifier"));
        if (!name) throw Error::connectionFailed("Unable to determine installer XPC service name");
        QDBusMessage call =
            QDBusMessage::createMethodCall(toQt(*name), QLatin1String(InstallerXPC::objectPath),
                                           QLatin1String(InstallerXPC::interface), QLatin1String(InstallerXPC::method));
        call.setArguments({toQt(InstallerXPC::urlOf(request.stagedApp)), toQt(InstallerXPC::urlOf(request.currentApp)),
                           static_cast<int>(request.currentProcessIdentifier)});
        pending->send(call, busAddress);
    } catch (const Error& error) {
        pending->failLater(error);
    }
    return pending;
}
