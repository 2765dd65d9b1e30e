#include "PlatformDesktop/FreedesktopNotifications.h"

#include "QtTestSupport/QtWait.h"
#include "TestSupport/TestLoop.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QIcon>
#include <QPixmap>

#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString servicePath = QStringLiteral("/org/freedesktop/Notifications");

/// A connection of its own to the bus, like that of another program.
class Connection {
public:
    Connection() : name(QStringLiteral("notifications%1").arg(++count)) {
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    }
    ~Connection() { QDBusConnection::disconnectFromBus(name); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    QDBusConnection bus() const { return QDBusConnection(name); }

    /// Hands everything to the loop that the bus has for this connection up to now.
    void settle() const {
        const QDBusPendingReply<QString> reply = bus().asyncCall(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
        EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
    }

private:
    static inline std::atomic<int> count = 0;
    QString name;
};

struct Shown {
    QString icon;
    std::string summary;
    std::string body;
    QStringList actions;
    QVariantMap hints;
};

/// A notification service that a test controls.
class FakeService : public QDBusVirtualObject {
public:
    explicit FakeService(QStringList abilities = {QStringLiteral("actions"), QStringLiteral("body")})
        : capabilities(std::move(abilities)) {
        EXPECT_TRUE(bus().registerVirtualObject(servicePath, this));
        EXPECT_TRUE(bus().registerService(serviceName));
    }

    QDBusConnection bus() const { return connection.bus(); }
    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        const QString member = message.member();
        if (member == QLatin1String("GetCapabilities")) {
            asked++;
            if (answersCapabilities)
                bus().send(message.createReply(capabilities));
            else
                held.push_back(message);
        } else if (member == QLatin1String("Notify")) {
            if (answersNotify)
                show(message);
            else
                held.push_back(message);
        } else if (member == QLatin1String("CloseNotification")) {
            const uint id = message.arguments().value(0).toUInt();
            closes.push_back(id);
            if (open.erase(id) > 0) tell("NotificationClosed", {id, 3U});
            bus().send(message.createReply());
        } else {
            return false;
        }
        return true;
    }

    /// Answers the calls that were held back.
    void answerHeld() {
        for (const QDBusMessage& message : std::exchange(held, {})) {
            if (message.member() == QLatin1String("Notify"))
                show(message);
            else
                bus().send(message.createReply(capabilities));
        }
    }

    void refuseHeld() {
        for (const QDBusMessage& message : std::exchange(held, {}))
            bus().send(message.createErrorReply(QStringLiteral("org.freedesktop.Notifications.Error.Excess"),
                                                QStringLiteral("no")));
    }

    void tell(const char* name, const QVariantList& arguments) const {
        QDBusMessage signal = QDBusMessage::createSignal(servicePath, serviceName, QLatin1String(name));
        signal.setArguments(arguments);
        EXPECT_TRUE(bus().send(signal));
    }

    Connection connection;
    QStringList capabilities;
    bool answersCapabilities = true;
    bool answersNotify = true;
    int asked = 0;
    std::vector<Shown> all;
    std::map<uint, Shown> open;
    std::vector<uint> closes;
    std::vector<QDBusMessage> held;
    uint lastId = 40;

private:
    void show(const QDBusMessage& message) {
        const QVariantList arguments = message.arguments();
        EXPECT_EQ(message.signature(), QStringLiteral("susssasa{sv}i"));
        EXPECT_EQ(arguments.value(0), QStringLiteral("Vimble"));
        EXPECT_EQ(arguments.value(1), 0U);
        EXPECT_EQ(arguments.value(7), -1);
        const Shown shown{arguments.value(2).toString(), arguments.value(3).toString().toStdString(),
                          arguments.value(4).toString().toStdString(), arguments.value(5).toStringList(),
                          qdbus_cast<QVariantMap>(arguments.value(6))};
        all.push_back(shown);
        open[++lastId] = shown;
        bus().send(message.createReply(lastId));
    }
};

class FreedesktopNotificationsOnBusTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(own.bus().isConnected()); }

    void post(const std::string& title, const std::string& body = "Hello") {
        center->add({title, UserNotification::Kind::message, title, "", body}, 0.05);
    }
    void postNow(const std::string& title) {
        post(title);
        loop.advance(0.05);
    }
    /// Lets everything arrive that we and the service have sent up to now, and the answers.
    void settle() {
        for (int i = 0; i < 3; i++) {
            own.settle();
            if (service) service->connection.settle();
            QCoreApplication::processEvents();
        }
    }
    bool shows(std::size_t count) {
        return turnUntil([&] { return service->open.size() == count; });
    }
    std::vector<std::string> summaries() const {
        std::vector<std::string> texts;
        for (const Shown& shown : service->all) texts.push_back(shown.summary);
        return texts;
    }

    Connection own;
    TestLoop loop;
    std::unique_ptr<FakeService> service;
    std::unique_ptr<FreedesktopNotifications> center = std::make_unique<FreedesktopNotifications>(loop, own.bus());
};

TEST_F(FreedesktopNotificationsOnBusTest, ABubbleComesAfterItsDelayWithWhatTheServiceCanDo) {
    service = std::make_unique<FakeService>(QStringList{QStringLiteral("actions"), QStringLiteral("body"),
                                                        QStringLiteral("body-markup"), QStringLiteral("sound"),
                                                        QStringLiteral("icon-static")});
    QPixmap face(128, 128);
    face.fill(QColor(1, 2, 3));
    QApplication::setWindowIcon(QIcon(face));
    post("Ann", "1 < 2");
    settle();
    EXPECT_THAT(service->all, IsEmpty());
    EXPECT_EQ(service->asked, 1);
    loop.advance(0.05);
    ASSERT_TRUE(shows(1));
    QApplication::setWindowIcon(QIcon());

    const Shown shown = service->all[0];
    EXPECT_EQ(shown.summary, "Ann");
    EXPECT_EQ(shown.body, "1 &lt; 2");
    EXPECT_EQ(shown.actions.value(0), QStringLiteral("default"));
    EXPECT_EQ(shown.hints[QStringLiteral("desktop-entry")], QStringLiteral("zorvane.Vimble"));
    EXPECT_EQ(shown.hints[QStringLiteral("category")], QStringLiteral("im.received"));
    EXPECT_EQ(shown.hints[QStringLiteral("suppress-sound")], true);
    // No icon is installed where the tests run, so a picture is sent.
    EXPECT_EQ(shown.icon, QString());
    const auto image = shown.hints[QStringLiteral("image-data")].value<QDBusArgument>();
    ASSERT_EQ(image.currentSignature(), QStringLiteral("(iiibiiay)"));
    int width = 0;
    int height = 0;
    int stride = 0;
    int bits = 0;
    int channels = 0;
    bool hasAlpha = false;
    QByteArray bytes;
    image.beginStructure();
    image >> width >> height >> stride >> hasAlpha >> bits >> channels >> bytes;
    image.endStructure();
    EXPECT_EQ(width, 64);
    EXPECT_EQ(height, 64);
    EXPECT_EQ(stride, 64 * 4);
    EXPECT_TRUE(hasAlpha);
    EXPECT_EQ(bits, 8);
    EXPECT_EQ(channels, 4);
    ASSERT_EQ(bytes.size(), 64 * 64 * 4);
    EXPECT_EQ(bytes.left(4), QByteArray("\x01\x02\x03\xff", 4));
}

TEST_F(FreedesktopNotificationsOnBusTest, AServiceThatCanDoNothingGetsASummaryAlone) {
    service = std::make_unique<FakeService>(QStringList());
    QPixmap face(16, 16);
    face.fill(Qt::red);
    QApplication::setWindowIcon(QIcon(face));
    postNow("Ann");
    ASSERT_TRUE(shows(1));
    QApplication::setWindowIcon(QIcon());
    EXPECT_EQ(service->all[0].summary, "Ann: Hello");
    EXPECT_EQ(service->all[0].body, "");
    EXPECT_TRUE(service->all[0].actions.isEmpty());
    EXPECT_FALSE(service->all[0].hints.contains(QStringLiteral("image-data")));
    EXPECT_FALSE(service->all[0].hints.contains(QStringLiteral("suppress-sound")));
}

TEST_F(FreedesktopNotificationsOnBusTest, TheCapabilitiesAreAskedOnceAndWhatWaitsForThemComesInItsOrder) {
    service = std::make_unique<FakeService>();
    service->answersCapabilities = false;
    for (const char* name : {"a", "b", "c"}) postNow(name);
    settle();
    EXPECT_THAT(service->all, IsEmpty());
    service->answerHeld();
    ASSERT_TRUE(shows(3));
    postNow("d");
    ASSERT_TRUE(shows(4));
    EXPECT_THAT(summaries(), ElementsAre("a", "b", "c", "d"));
    EXPECT_EQ(service->asked, 1);
}

TEST_F(FreedesktopNotificationsOnBusTest, WhatIsPendingCanBeTakenBack) {
    service = std::make_unique<FakeService>();
    post("a");
    post("b");
    center->removeAllPending();
    EXPECT_FALSE(loop.hasTimers());
    loop.advance(1);
    settle();
    EXPECT_THAT(service->all, IsEmpty());
    post("c");
    center.reset();
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(FreedesktopNotificationsOnBusTest, ClearingClosesWhatIsShownAndNothingElse) {
    service = std::make_unique<FakeService>();
    postNow("a");
    postNow("b");
    postNow("c");
    ASSERT_TRUE(shows(3));
    // The user closes bubble 42, the second of ours.
    service->tell("NotificationClosed", {42U, 2U});
    settle();
    center->removeAllDelivered();
    settle();
    EXPECT_THAT(service->closes, ElementsAre(41U, 43U));
    center->removeAllDelivered();
    settle();
    EXPECT_THAT(service->closes, ElementsAre(41U, 43U));
}

TEST_F(FreedesktopNotificationsOnBusTest, ABubbleWhoseNumberIsNotKnownYetIsClosedAsSoonAsItIs) {
    service = std::make_unique<FakeService>();
    service->answersNotify = false;
    postNow("a");
    postNow("b");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 2; }));
    center->removeAllDelivered();
    postNow("c");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 3; }));
    service->answerHeld();
    EXPECT_TRUE(turnUntil([&] { return service->closes.size() == 2; }));
    settle();
    EXPECT_THAT(service->closes, ElementsAre(41U, 42U));
    EXPECT_EQ(service->open.size(), 1U);
}

TEST_F(FreedesktopNotificationsOnBusTest, WhatWaitsForTheServiceIsClearedToo) {
    service = std::make_unique<FakeService>();
    service->answersCapabilities = false;
    postNow("a");
    center->removeAllDelivered();
    service->answersCapabilities = true;
    service->answerHeld();
    settle();
    EXPECT_THAT(service->all, IsEmpty());
}

TEST_F(FreedesktopNotificationsOnBusTest, AClickIsToldWithTheTokenThatCameBeforeIt) {
    service = std::make_unique<FakeService>();
    std::vector<ActivationToken> told;
    center->onActivated([&](const ActivationToken& token) { told.push_back(token); });
    postNow("a");
    postNow("b");
    ASSERT_TRUE(shows(2));
    const QString text = QStringLiteral("abc-1_TIME5");
    service->tell("ActivationToken", {41U, text});
    service->tell("ActionInvoked", {41U, QStringLiteral("default")});
    service->tell("ActionInvoked", {42U, QStringLiteral("default")});
    ASSERT_TRUE(turnUntil([&] { return told.size() == 2; }));
    EXPECT_THAT(told, ElementsAre(ActivationToken{text, text}, ActivationToken{}));
}

TEST_F(FreedesktopNotificationsOnBusTest, ATokenThatCanNotBeOneCountsAsNone) {
    service = std::make_unique<FakeService>();
    std::vector<ActivationToken> told;
    center->onActivated([&](const ActivationToken& token) { told.push_back(token); });
    postNow("a");
    ASSERT_TRUE(shows(1));
    service->tell("ActivationToken", {41U, QStringLiteral("two\nlines")});
    service->tell("ActionInvoked", {41U, QStringLiteral("default")});
    ASSERT_TRUE(turnUntil([&] { return told.size() == 1; }));
    EXPECT_EQ(told[0], ActivationToken());
}

TEST_F(FreedesktopNotificationsOnBusTest, ClicksOnTheBubblesOfOthersAndForgedOnesAreIgnored) {
    service = std::make_unique<FakeService>();
    int clicks = 0;
    center->onActivated([&](const ActivationToken&) { clicks++; });
    postNow("a");
    ASSERT_TRUE(shows(1));
    service->tell("ActionInvoked", {7U, QStringLiteral("default")});
    service->tell("ActionInvoked", {41U, QStringLiteral("reply")});
    service->tell("ActionInvoked", {QStringLiteral("41"), QStringLiteral("default")});
    settle();
    const Connection stranger;
    QDBusMessage forged = QDBusMessage::createSignal(servicePath, serviceName, QStringLiteral("ActionInvoked"));
    forged << 41U << QStringLiteral("default");
    EXPECT_TRUE(stranger.bus().send(forged));
    stranger.settle();
    settle();
    EXPECT_EQ(clicks, 0);
    center->removeAllDelivered();
    service->tell("ActionInvoked", {41U, QStringLiteral("default")});
    settle();
    EXPECT_EQ(clicks, 0);
}

TEST_F(FreedesktopNotificationsOnBusTest, TheHandlerOfAClickMayClearAndMayDestroyTheCentre) {
    service = std::make_unique<FakeService>();
    int clicks = 0;
    postNow("a");
    postNow("b");
    ASSERT_TRUE(shows(2));
    center->onActivated([&](const ActivationToken&) {
        clicks++;
        center->removeAllDelivered();
        center.reset();
    });
    service->tell("ActionInvoked", {41U, QStringLiteral("default")});
    service->tell("ActionInvoked", {42U, QStringLiteral("default")});
    ASSERT_TRUE(turnUntil([&] { return clicks == 1; }));
    settle();
    EXPECT_EQ(clicks, 1);
    EXPECT_THAT(service->closes, ElementsAre(41U, 42U));
}

TEST_F(FreedesktopNotificationsOnBusTest, WithoutAServiceNothingIsKeptAndOneThatComesLaterIsUsed) {
    postNow("a");
    settle();
    postNow("b");
    settle();
    service = std::make_unique<FakeService>();
    settle();
    EXPECT_THAT(service->all, IsEmpty());
    postNow("c");
    ASSERT_TRUE(shows(1));
    EXPECT_THAT(summaries(), ElementsAre("c"));
}

TEST_F(FreedesktopNotificationsOnBusTest, AServiceThatDiesTakesItsBubblesAlongAndTheNextIsAskedAnew) {
    service = std::make_unique<FakeService>();
    postNow("a");
    ASSERT_TRUE(shows(1));
    service->answersNotify = false;
    postNow("b");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 1; }));
    service.reset();
    settle();

    service = std::make_unique<FakeService>(QStringList());
    settle();
    int clicks = 0;
    center->onActivated([&](const ActivationToken&) { clicks++; });
    // The new service uses number 41 for a bubble that is not ours.
    service->tell("ActionInvoked", {41U, QStringLiteral("default")});
    center->removeAllDelivered();
    settle();
    EXPECT_EQ(clicks, 0);
    EXPECT_THAT(service->closes, IsEmpty());
    postNow("c");
    ASSERT_TRUE(shows(1));
    EXPECT_EQ(service->asked, 1);
    EXPECT_THAT(summaries(), ElementsAre("c: Hello"));
}

TEST_F(FreedesktopNotificationsOnBusTest, AServiceThatDiesInTheMidstOfTheQuestionCostsWhatWaited) {
    service = std::make_unique<FakeService>();
    service->answersCapabilities = false;
    postNow("a");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 1; }));
    service.reset();
    settle();
    service = std::make_unique<FakeService>();
    postNow("b");
    ASSERT_TRUE(shows(1));
    EXPECT_THAT(summaries(), ElementsAre("b"));
}

TEST_F(FreedesktopNotificationsOnBusTest, AnotherServiceThatTakesTheNameOverIsAskedAnew) {
    service = std::make_unique<FakeService>();
    postNow("a");
    ASSERT_TRUE(shows(1));
    auto before = std::move(service);
    ASSERT_TRUE(before->bus().unregisterService(serviceName));
    service = std::make_unique<FakeService>(QStringList());
    settle();
    // The old service sends another signal, but no longer owns the service's name.
    int clicks = 0;
    center->onActivated([&](const ActivationToken&) { clicks++; });
    before->tell("ActionInvoked", {41U, QStringLiteral("default")});
    before->connection.settle();
    settle();
    EXPECT_EQ(clicks, 0);
    postNow("b");
    ASSERT_TRUE(shows(1));
    EXPECT_THAT(summaries(), ElementsAre("b: Hello"));
}

TEST_F(FreedesktopNotificationsOnBusTest, WhatTheServiceRefusesIsLostAndTheRestGoesOn) {
    service = std::make_unique<FakeService>();
    service->answersNotify = false;
    postNow("a");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 1; }));
    service->refuseHeld();
    service->answersNotify = true;
    postNow("b");
    ASSERT_TRUE(shows(1));
    EXPECT_THAT(summaries(), ElementsAre("b"));
    center->removeAllDelivered();
    settle();
    EXPECT_THAT(service->closes, ElementsAre(41U));
}

TEST_F(FreedesktopNotificationsOnBusTest, AServiceThatDoesNotAnswerHoldsALimitedNumberAndNobodyUp) {
    service = std::make_unique<FakeService>();
    service->answersNotify = false;
    constexpr auto most = FreedesktopNotifications::mostInFlight + FreedesktopNotifications::mostWaiting;
    postNow("first");
    ASSERT_TRUE(turnUntil([&] { return service->held.size() == 1; }));
    for (std::size_t i = 1; i < most + 5; i++) post(std::to_string(i));
    loop.advance(0.05);
    settle();
    EXPECT_EQ(service->held.size(), FreedesktopNotifications::mostInFlight);
    service->answersNotify = true;
    service->answerHeld();
    ASSERT_TRUE(shows(FreedesktopNotifications::mostShown));
    // The five oldest of those that waited were dropped, and the oldest open bubbles were closed.
    ASSERT_TRUE(turnUntil([&] { return service->all.size() == most; }));
    settle();
    EXPECT_EQ(service->all[FreedesktopNotifications::mostInFlight].summary,
              std::to_string(FreedesktopNotifications::mostInFlight + 5));
    EXPECT_EQ(service->all.back().summary, std::to_string(most + 4));
    EXPECT_EQ(service->open.size(), FreedesktopNotifications::mostShown);
    center->removeAllDelivered();
    EXPECT_TRUE(shows(0));
}

TEST_F(FreedesktopNotificationsOnBusTest, AWholeListAtOnceIsShownInFull) {
    service = std::make_unique<FakeService>();
    std::vector<std::string> names;
    for (int i = 0; i < 300; i++) {
        names.push_back(std::to_string(i));
        post(names.back());
    }
    loop.advance(0.05);
    ASSERT_TRUE(shows(300));
    EXPECT_EQ(summaries(), names);
}

TEST_F(FreedesktopNotificationsOnBusTest, WithoutABusNothingHappens) {
    FreedesktopNotifications nowhere(loop, QDBusConnection(QStringLiteral("there is none")));
    nowhere.add({"1", UserNotification::Kind::message, "a", "", "b"}, 0.05);
    EXPECT_FALSE(loop.hasTimers());
    nowhere.removeAllPending();
    nowhere.removeAllDelivered();
}

}  // namespace
