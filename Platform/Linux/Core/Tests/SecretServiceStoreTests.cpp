#include "PlatformCore/SecretServiceStore.h"

#include "PlatformCore/LibsecretClient.h"
#include "SecretStoreSuite.h"
#include "TestSupport/EnvironmentVariable.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QElapsedTimer>

#include <gmock/gmock.h>

// secret-service.sh makes each kind of session and runs the suites whose names begin with that kind.

namespace {

struct SecretServiceMaker {
    std::unique_ptr<SecretStore> fresh() {
        LibsecretClient client;
        EXPECT_TRUE(client.lockedCollections().empty())
            << "the keyring is locked: the session is not what it should be";
        for (const auto& item : client.list()) client.remove(item);
        return again();
    }
    std::unique_ptr<SecretStore> again() { return std::make_unique<SecretServiceStore>(); }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(SecretServiceUnlocked, SecretStoreSuite, SecretServiceMaker);

namespace {

SecretItem item(std::string account = "identity.primary") {
    SecretItem made;
    made.service = "zorvane.Test";
    made.account = std::move(account);
    made.label = "Test Secret";
    made.data = Bytes{'k', 'e', 'y'};
    return made;
}

SecretQuery query(std::string account = "identity.primary") {
    return {"zorvane.Test", std::move(account), {}, {}, false};
}
const SecretQuery labelQuery{{}, {}, "Test Secret", {}, false};

/// Expects this status of every operation: a store that can't be searched must never say "not found".
void expectAll(SecretStatus expected) {
    SecretServiceStore store;
    EXPECT_EQ(store.copyMatching(query()).status, expected);
    EXPECT_EQ(store.copyMatching(query("no such account")).status, expected);
    EXPECT_EQ(store.copyMatching(labelQuery).status, expected);
    EXPECT_EQ(store.add(item("new")), expected);
    EXPECT_EQ(store.update(query(), Bytes{'x'}), expected);
    EXPECT_EQ(store.remove(query()), expected);
    const std::string text = store.errorMessage(expected);
    EXPECT_NE(text.find(" ("), std::string::npos) << "no reason in: " << text;
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

QDBusMessage callService(const QString& method, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.secrets"),
                                                          QStringLiteral("/org/freedesktop/secrets"),
                                                          QStringLiteral("org.freedesktop.Secret.Service"), method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

void lockEverything() {
    const QList<QDBusObjectPath> paths{QDBusObjectPath(QStringLiteral("/org/freedesktop/secrets/collection/login"))};
    const QDBusMessage reply = callService(QStringLiteral("Lock"), {QVariant::fromValue(paths)});
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    ASSERT_EQ(LibsecretClient().lockedCollections().size(), 1u);
}

TEST(SecretServiceUnlockedTest, AnItemWithoutOurAttributesIsFoundByItsLabel) {
    SecretServiceMaker().fresh();
    LibsecretClient().create({}, "Foreign Label", Bytes{'f'});
    const auto found = SecretServiceStore().copyMatching({{}, {}, "Foreign Label", {}, false});
    ASSERT_EQ(found.status, SecretStatuses::ok);
    EXPECT_EQ(found.item.data, (Bytes{'f'}));
    EXPECT_EQ(found.item.service, std::nullopt);
}

TEST(SecretServiceUnlockedTest, OfTwoItemsOfOneIdentityTheOlderCounts) {
    const auto store = SecretServiceMaker().fresh();
    const std::map<std::string, std::string> identity{
        {"service", "zorvane.Test"}, {"account", "identity.primary"}, {"synchronizable", "no"}};
    for (char c = 'a'; c < 'a' + 12; ++c)
        LibsecretClient().create(identity, "Test Secret", Bytes{static_cast<std::uint8_t>(c)});
    EXPECT_EQ(store->copyMatching(query()).item.data, (Bytes{'a'}));
    EXPECT_EQ(store->add(item()), SecretStatuses::duplicateItem);
    EXPECT_EQ(store->remove(query()), SecretStatuses::ok);
    EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::itemNotFound) << "not all were removed";
}

TEST(SecretServiceUnlockedTest, ASecretOverTheLimitIsUnreadableAndNotMissing) {
    const auto store = SecretServiceMaker().fresh();
    auto large = item();
    large.data = Bytes((64 << 10) + 1, 'x');
    ASSERT_EQ(store->add(large), SecretStatuses::ok);
    EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::decode);
    EXPECT_EQ(store->remove(query()), SecretStatuses::ok);
}

TEST(SecretServiceLockedTest, ALockedStoreNeverSaysThatAnItemIsMissing) {
    SecretServiceStore store;
    ASSERT_EQ(store.add(item()), SecretStatuses::ok);
    lockEverything();
    expectAll(SecretStatuses::interactionNotAllowed);
}

TEST(SecretServiceLockedTest, WhereAPromptCanBeSeenItWasDismissed) {
    lockEverything();
    const EnvironmentVariable display("DISPLAY", ":4711");
    EXPECT_EQ(SecretServiceStore().copyMatching(query()).status, SecretStatuses::userCanceled);
}

TEST(SecretServiceFreshTest, WithoutAnyCollectionAnItemIsReallyMissingAndNoneIsStoredWithoutAPassword) {
    SecretServiceStore store;
    EXPECT_EQ(store.copyMatching(query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(store.copyMatching(labelQuery).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(store.add(item()), SecretStatuses::interactionNotAllowed)
        << store.errorMessage(SecretStatuses::internalError);
    EXPECT_EQ(store.copyMatching(query()).status, SecretStatuses::itemNotFound);
}

TEST(SecretServiceNoBusTest, WithoutABusNoStoreIsAvailable) { expectAll(SecretStatuses::notAvailable); }

TEST(SecretServiceNobodyTest, WithoutAServiceNoStoreIsAvailable) { expectAll(SecretStatuses::notAvailable); }

/// Owns the service's name and never answers: it lives on the thread that the call blocks.
class MuteService : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        message.setDelayedReply(true);
        return true;
    }
};

TEST(SecretServiceSlowTest, AServiceThatDoesNotAnswerIsNotAvailableAfterAWhile) {
    MuteService mute;
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.registerVirtualObject(QStringLiteral("/org/freedesktop/secrets"), &mute, QDBusConnection::SubPath));
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.secrets")));
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(SecretServiceStore().copyMatching(query()).status, SecretStatuses::notAvailable);
    EXPECT_LT(clock.elapsed(), 60000);
}

}  // namespace
