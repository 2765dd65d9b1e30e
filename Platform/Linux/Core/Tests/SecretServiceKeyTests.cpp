#include "PlatformCore/LibsecretClient.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformCore/SecretServiceStore.h"
#include "QtTestSupport/QtWait.h"
#include "StateKit/WorkerThread.h"
#include "TestSupport/EnvironmentVariable.h"
#include "VimbleKit/KeyAccess.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QTimer>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <variant>

// These tests ask the real service for the identity, on a thread of its own, as the windows do. secret-service.sh
// makes each kind of session and runs the suites whose names begin with that kind.

/// A secret in the service's own form, for a call that libsecret does not offer.
struct WireSecret {
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType;
};

QDBusArgument& operator<<(QDBusArgument& argument, const WireSecret& secret) {
    argument.beginStructure();
    argument << secret.session << secret.parameters << secret.value << secret.contentType;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, WireSecret& secret) {
    argument.beginStructure();
    argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
    argument.endStructure();
    return argument;
}

Q_DECLARE_METATYPE(WireSecret)

namespace {

const std::string oneText(64, '1');
const std::string twoText(64, '2');

/// Asks for the key as the desktop client does, and notes the outcome.
class Asker : public SignalTarget {
public:
    Asker() = default;
    ~Asker() { EXPECT_TRUE(thread.finish(std::chrono::minutes(2))); }

    std::string loadOrGenerate() {
        begin();
        access.loadOrGenerate(*this, hear);
        return wait();
    }
    std::string regenerate() {
        beginRegenerating();
        return wait();
    }
    std::string replace(const std::string& text) {
        begin();
        access.replace(text, *this, hear);
        return wait();
    }

    void beginRegenerating() {
        begin();
        access.regenerate(*this, hear);
    }
    /// The secret key, or "failed " and the status.
    std::string wait() {
        QElapsedTimer clock;
        clock.start();
        qint64 last = 0;
        QTimer beat;
        beat.start(5);
        QObject::connect(&beat, &QTimer::timeout, [&] {
            longestStandstillMs = std::max(longestStandstillMs, clock.elapsed() - last);
            last = clock.elapsed();
        });
        return turnUntil([this] { return told.has_value(); }, 90000) ? *told : "nothing";
    }
    bool isTold() const { return told.has_value(); }

    qint64 longestStandstillMs = 0;  // of the main loop, during `wait`

private:
    void begin() {
        told.reset();
        longestStandstillMs = 0;
    }
    static void hear(Asker& self, const KeyAccess::Outcome& outcome) {
        const Keys* keys = std::get_if<Keys>(&outcome);
        self.told = keys != nullptr ? Nacl::hex(keys->secretKey.view())
                                    : "failed " + std::to_string(std::get<KeysError>(outcome).status);
    }

    QtMainLoop loop;
    SecretServiceStore store;
    WorkerThread thread;
    KeyAccess access{loop, store, thread};
    std::optional<std::string> told;
};

QDBusMessage call(const char* path, const char* interface, const char* method, const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.secrets"), QLatin1String(path),
                                       QLatin1String(interface), QLatin1String(method));
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

constexpr char servicePath[] = "/org/freedesktop/secrets";
constexpr char serviceInterface[] = "org.freedesktop.Secret.Service";
const QDBusObjectPath loginCollection(QStringLiteral("/org/freedesktop/secrets/collection/login"));

void lockEverything() {
    const QDBusMessage reply =
        call(servicePath, serviceInterface, "Lock", {QVariant::fromValue(QList<QDBusObjectPath>{loginCollection})});
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
}

/// Unlocks the service as a user does who types the password into the prompt.
void unlockEverything() {
    qDBusRegisterMetaType<WireSecret>();
    const QDBusMessage session = call(servicePath, serviceInterface, "OpenSession",
                                      {QStringLiteral("plain"), QVariant::fromValue(QDBusVariant(QString()))});
    ASSERT_EQ(session.type(), QDBusMessage::ReplyMessage) << session.errorMessage().toStdString();
    const WireSecret password{session.arguments().at(1).value<QDBusObjectPath>(), {}, "pw", "text/plain"};
    const QDBusMessage reply =
        call(servicePath, "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface", "UnlockWithMasterPassword",
             {QVariant::fromValue(loginCollection), QVariant::fromValue(password)});
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    ASSERT_TRUE(LibsecretClient().lockedCollections().empty());
}

/// Empties the store and puts one key into it.
void store(const std::string& text) {
    LibsecretClient client;
    ASSERT_TRUE(client.lockedCollections().empty());
    for (const auto& item : client.list()) client.remove(item);
    SecretServiceStore secrets;
    Keys::replace(text, secrets);
}

TEST(SecretServiceUnlockedKeyTest, AKeyIsReplacedRegeneratedAndReadBackByAnotherRun) {
    store(oneText);
    Asker asker;
    EXPECT_EQ(asker.loadOrGenerate(), oneText);
    EXPECT_EQ(asker.replace(twoText), twoText);
    EXPECT_EQ(Asker().loadOrGenerate(), twoText);
    const std::string fresh = asker.regenerate();
    EXPECT_EQ(fresh.size(), 64u);
    EXPECT_NE(fresh, twoText);
    EXPECT_EQ(Asker().loadOrGenerate(), fresh);
    EXPECT_EQ(LibsecretClient().list().size(), 1u);
}

TEST(SecretServiceUnlockedKeyTest, WhatAnotherProgramHasStoredMeanwhileIsWhatIsFound) {
    store(oneText);
    Asker asker;
    EXPECT_EQ(asker.loadOrGenerate(), oneText);
    SecretServiceStore other;
    Keys::replace(twoText, other);
    EXPECT_EQ(asker.loadOrGenerate(), twoText);
}

TEST(SecretServiceUnlockedKeyTest, WhileTheServiceSleepsTheMainLoopTurnsAndTheKeyIsWrittenWhenItWakes) {
    store(oneText);
    const uint daemon =
        QDBusConnection::sessionBus().interface()->servicePid(QStringLiteral("org.freedesktop.secrets"));
    ASSERT_GT(daemon, 1u);
    Asker asker;
    ASSERT_EQ(kill(static_cast<pid_t>(daemon), SIGSTOP), 0);
    asker.beginRegenerating();
    bool isOver = false;
    QTimer::singleShot(700, [&] {
        EXPECT_FALSE(asker.isTold());
        isOver = true;
        kill(static_cast<pid_t>(daemon), SIGCONT);
    });
    const std::string fresh = asker.wait();
    EXPECT_TRUE(isOver);
    EXPECT_LT(asker.longestStandstillMs, 500);
    EXPECT_EQ(fresh.size(), 64u);
    EXPECT_EQ(Asker().loadOrGenerate(), fresh);
}

TEST(SecretServiceLockedKeyTest, ALockedServiceKeepsTheOldKeyWhateverIsTried) {
    unlockEverything();
    store(oneText);
    lockEverything();
    const std::string locked = "failed " + std::to_string(SecretStatuses::interactionNotAllowed);
    {
        Asker asker;
        EXPECT_EQ(asker.loadOrGenerate(), locked);
        EXPECT_EQ(asker.regenerate(), locked);
        EXPECT_EQ(asker.replace(twoText), locked);
    }
    unlockEverything();
    EXPECT_EQ(Asker().loadOrGenerate(), oneText);
}

TEST(SecretServiceLockedKeyTest, APromptThatIsDismissedKeepsTheOldKey) {
    unlockEverything();
    store(oneText);
    lockEverything();
    {
        // There is no such display, so the service dismisses its prompt by itself.
        const EnvironmentVariable display("DISPLAY", ":4711");
        const std::string cancelled = "failed " + std::to_string(SecretStatuses::userCanceled);
        Asker asker;
        EXPECT_EQ(asker.regenerate(), cancelled);
        EXPECT_EQ(asker.replace(twoText), cancelled);
    }
    unlockEverything();
    EXPECT_EQ(Asker().loadOrGenerate(), oneText);
}

/// Owns the service's name, and answers each call in the same way.
class OneAnswer : public QDBusVirtualObject {
public:
    /// @param error  the name of the error that it answers with; if empty, it never answers
    explicit OneAnswer(const char* error) : error(QLatin1String(error)) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        EXPECT_TRUE(bus.registerVirtualObject(QLatin1String(servicePath), this, QDBusConnection::SubPath));
        EXPECT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.secrets")));
    }
    ~OneAnswer() override {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterService(QStringLiteral("org.freedesktop.secrets"));
        bus.unregisterObject(QLatin1String(servicePath));
    }
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        message.setDelayedReply(true);
        ++calls;
        if (!error.isEmpty()) bus.send(message.createErrorReply(error, QStringLiteral("not for you")));
        return true;
    }
    int calls = 0;

private:
    const QString error;
};

TEST(SecretServiceDeniedKeyTest, ARefusalIsToldAsOne) {
    OneAnswer service("org.freedesktop.DBus.Error.AccessDenied");
    const std::string refused = "failed " + std::to_string(SecretStatuses::authFailed);
    Asker asker;
    EXPECT_EQ(asker.loadOrGenerate(), refused);
    EXPECT_EQ(asker.regenerate(), refused);
    EXPECT_EQ(asker.replace(twoText), refused);
    EXPECT_GT(service.calls, 0);
}

TEST(SecretServiceSlowKeyTest, WhileTheServiceDoesNotAnswerTheMainLoopTurns) {
    OneAnswer service("");
    Asker asker;
    asker.beginRegenerating();
    EXPECT_EQ(asker.wait(), "failed " + std::to_string(SecretStatuses::notAvailable));
    EXPECT_GT(service.calls, 0);
    EXPECT_LT(asker.longestStandstillMs, 1000);
}

}  // namespace
