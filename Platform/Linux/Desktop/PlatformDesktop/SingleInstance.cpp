#include "PlatformDesktop/SingleInstance.h"

#include "PlatformCore/ApplicationFolder.h"

#include <QCryptographicHash>
#include <QDBusAbstractAdaptor>
#include <QDBusError>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QVariant>

#include <algorithm>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr char defaultName[] = "zorvane.Vimble";
constexpr char activationKey[] = "activation-token";
constexpr char startupKey[] = "desktop-startup-id";

// A flag for the bus's RequestName, and two of its results.
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;

fs::path realPath(const fs::path& folder) {
    std::error_code error;
    fs::path path = fs::absolute(folder, error);
    if (error) path = folder;
    fs::path real = fs::weakly_canonical(path, error);
    if (error) real = path.lexically_normal();
    return real.has_filename() ? real : real.parent_path();  // "/a/b/" is "/a/b"
}

QDBusMessage toBus(const char* method) {
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), QLatin1String(method));
}

QVariantMap platformData(const ActivationToken& token) {
    QVariantMap data;
    if (!token.activation.isEmpty()) data.insert(QLatin1String(activationKey), token.activation);
    if (!token.startupId.isEmpty()) data.insert(QLatin1String(startupKey), token.startupId);
    return data;
}

ActivationToken tokenOf(const QVariantMap& data) {
    const auto text = [&](const char* key) {
        const QVariant value = data.value(QLatin1String(key));
        return value.metaType().id() == QMetaType::QString ? ActivationToken::checked(value.toString()) : QString();
    };
    return {text(activationKey), text(startupKey)};
}

bool isShortEnough(const QString& url) { return url.size() <= SingleInstance::longestUrl; }

QStringList withinLimits(const QStringList& urls) {
    QStringList kept;
    for (const QString& url : urls)
        if (isShortEnough(url) && kept.size() < SingleInstance::mostUrls) kept.push_back(url);
    return kept;
}

/// Whether the other program has ended, rather than being slow or unwilling.
bool isGone(const QDBusMessage& answer) {
    const QString error = answer.errorName();
    return error == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
           error == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
}

/// Whether the other program died or took too long after we asked: the bus has one error for both.
bool hasNotAnswered(const QDBusMessage& answer) {
    return answer.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply");
}

}  // namespace

/// The object that other programs see on the bus. Its slots are the methods of the interface: Qt takes their names and
/// arguments from them.
class ApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    ApplicationAdaptor(SingleInstance& instance, QDBusConnection bus)
        : QDBusAbstractAdaptor(&instance), instance(instance), bus(std::move(bus)) {}

public Q_SLOTS:
    // NOLINTBEGIN(readability-identifier-naming): the names on the bus
    void Activate(const QVariantMap& platformData, const QDBusMessage& message) {
        if (instance.isEnding) return message.setDelayedReply(true);
        if (!instance.keep({std::nullopt, tokenOf(platformData)})) refuse(message, "Too many calls wait");
    }

    void Open(const QStringList& uris, const QVariantMap& platformData, const QDBusMessage& message) {
        if (instance.isEnding) return message.setDelayedReply(true);
        if (uris.size() > SingleInstance::mostUrls)
            refuse(message, "Too many URLs");
        else if (!std::all_of(uris.begin(), uris.end(), isShortEnough))
            refuse(message, "A URL is too long");
        else if (!instance.keep({uris, tokenOf(platformData)}))
            refuse(message, "Too many calls wait");
    }

    void ActivateAction(const QString&, const QVariantList&, const QVariantMap&, const QDBusMessage& message) {
        answer(message, QDBusError::InvalidArgs, "There is no such action");
    }
    // NOLINTEND(readability-identifier-naming)

private:
    void refuse(const QDBusMessage& message, const char* text) { answer(message, QDBusError::LimitsExceeded, text); }

    void answer(const QDBusMessage& message, QDBusError::ErrorType error, const char* text) {
        message.setDelayedReply(true);  // keeps Qt from sending its own answer, which would be a success
        bus.send(message.createErrorReply(error, QLatin1String(text)));
    }

    SingleInstance& instance;
    QDBusConnection bus;
};

SingleInstance::SingleInstance(QString name, QDBusConnection bus) : name(std::move(name)), bus(std::move(bus)) {
    new ApplicationAdaptor(*this, this->bus);  // owned by this object, its parent
}

SingleInstance::~SingleInstance() {
    if (isFirst) leave();
}

void SingleInstance::leave() {
    bus.unregisterObject(objectPath(name));
    QDBusMessage release = toBus("ReleaseName");
    release << name;
    bus.send(release);
}

SingleInstance::Outcome SingleInstance::claim(const QStringList& urls, const ActivationToken& token,
                                              std::chrono::milliseconds within) {
    const QDeadlineTimer deadline(within);
    const auto left = [&] { return static_cast<int>(std::max<qint64>(deadline.remainingTime(), 1)); };
    _error.clear();
    // Register the object before taking the name, so that a program that finds the name can call the object.
    const QString path = objectPath(name);
    if (!bus.isConnected() || !bus.registerObject(path, this, QDBusConnection::ExportAdaptors)) {
        _error = bus.isConnected() ? QStringLiteral("the object's path is taken") : bus.lastError().message();
        if (_error.isEmpty()) _error = QStringLiteral("there is no session bus");
        return Outcome::noBus;
    }
    const auto ending = [&](Outcome outcome, const QString& text) {
        bus.unregisterObject(path);
        _error = text;
        return outcome;
    };

    const QStringList sent = withinLimits(urls);
    bool hasAsked = false;
    for (;;) {
        QDBusMessage request = toBus("RequestName");
        request << name << doNotQueue;
        const QDBusMessage owner = bus.call(request, QDBus::Block, left());
        if (owner.type() != QDBusMessage::ReplyMessage) {
            leave();  // a slow bus may still give us the name, and calls to it would get no answer
            return ending(hasAsked ? Outcome::noAnswer : Outcome::noBus, owner.errorMessage());
        }
        const uint result = owner.arguments().value(0).toUInt();
        if (result == primaryOwner || result == alreadyOwner) {
            isFirst = true;
            return Outcome::first;
        }

        QDBusMessage call =
            QDBusMessage::createMethodCall(name, path, QStringLiteral("org.freedesktop.Application"),
                                           sent.isEmpty() ? QStringLiteral("Activate") : QStringLiteral("Open"));
        call.setAutoStartService(false);  // if the owner of the name has ended, we want to become the first
        if (!sent.isEmpty()) call << sent;
        call << platformData(token);
        const QDBusMessage answer = bus.call(call, QDBus::Block, left());
        if (answer.type() == QDBusMessage::ReplyMessage) return ending(Outcome::forwarded, {});
        hasAsked = true;
        const bool isWorthAnother = isGone(answer) || hasNotAnswered(answer);
        if (!isWorthAnother || deadline.hasExpired()) return ending(Outcome::noAnswer, answer.errorMessage());
    }
}

void SingleInstance::setHandlers(Handlers newHandlers) {
    handlers = std::move(newHandlers);
    QMetaObject::invokeMethod(
        this, [this] { deliver(); }, Qt::QueuedConnection);
}

void SingleInstance::beginEnding() {
    isEnding = true;
    waiting.clear();
}

bool SingleInstance::keep(Call call) {
    if (waiting.size() >= mostWaiting) return false;
    waiting.push_back(std::move(call));
    // Deliver in a later turn: a handler may show a dialog, while the caller waits for our answer.
    QMetaObject::invokeMethod(
        this, [this] { deliver(); }, Qt::QueuedConnection);
    return true;
}

void SingleInstance::deliver() {
    // Deliver one call in each event: a handler may turn the loop, set other handlers, or destroy us.
    if (!handlers || waiting.empty()) return;
    const Call call = std::move(waiting.front());
    waiting.pop_front();
    if (!waiting.empty())
        QMetaObject::invokeMethod(
            this, [this] { deliver(); }, Qt::QueuedConnection);
    const Handlers now = *handlers;
    if (call.urls && now.open) now.open(*call.urls, call.token);
    if (!call.urls && now.activate) now.activate(call.token);
}

QString SingleInstance::busName(const std::optional<fs::path>& dataDir) {
    const QString standard = QLatin1String(defaultName);
    if (!dataDir) return standard;
    const fs::path folder = realPath(*dataDir);
    try {
        if (folder == realPath(ApplicationFolder::place(std::nullopt))) return standard;
    } catch (const ApplicationFolderError&) {
        // Without a home there is no default folder, so `folder` is another one.
    }
    const std::string& path = folder.native();
    const QByteArray hash = QCryptographicHash::hash(
        QByteArray::fromRawData(path.data(), static_cast<qsizetype>(path.size())), QCryptographicHash::Sha256);
    return standard + QLatin1String(".d") + QLatin1String(hash.toHex().left(32));
}

QString SingleInstance::objectPath(const QString& name) {
    return QLatin1Char('/') + QString(name).replace(QLatin1Char('.'), QLatin1Char('/'));
}

#include "SingleInstance.moc"
