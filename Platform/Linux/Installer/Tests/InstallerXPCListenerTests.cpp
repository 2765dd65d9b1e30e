#include "PlatformInstaller/InstallerXPCListener.h"

#include "QtTestSupport/PrivateBus.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/InstallerXPC.h"

#include <QDBusMessage>
#include <QDBusPendingReply>

#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace std::chrono_literals;

constexpr const char* name = "zorvane.Test.Listener";

class InstallerXPCListenerTest : public ::testing::Test {
public:
    ~InstallerXPCListenerTest() override {
        go.set_value({});
        listener.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("listener"));
    }

protected:
    InstallerXPCListenerTest() {
        own = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), QStringLiteral("listener"));
    }

    /// Makes a listener whose work waits until `answer` gives it a result.
    void make(std::chrono::milliseconds idle = InstallerXPCListener::idleTime) {
        listener = std::make_unique<InstallerXPCListener>(
            own,
            [this](const InstallerLaunchRequest& request) {
                asked = request;
                hasBegun.set_value();
                return go.get_future().get();
            },
            [this] { ++ends; }, idle);
    }
    void listen() { ASSERT_EQ(listener->listen(QLatin1String(name)), QString()); }

    QDBusPendingReply<QStringList, bool> call(const QVariantList& arguments) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(QLatin1String(name), QLatin1String(InstallerXPC::objectPath),
                                           QLatin1String(InstallerXPC::interface), QLatin1String(InstallerXPC::method));
        message.setArguments(arguments);
        message.setAutoStartService(false);
        return bus.connection().asyncCall(message);
    }
    QDBusPendingReply<QStringList, bool> callWell() {
        return call({QStringLiteral("file:///tmp/New%20one.app"), QStringLiteral("file:///opt/Vimble.app"), 412});
    }
    void answer(const InstallerReply& reply) {
        go.set_value(reply);
        go = {};
    }
    bool begins() {
        auto begun = hasBegun.get_future();
        return turnUntil([&] { return begun.wait_for(0ms) == std::future_status::ready; });
    }

    TemporaryFolder folder;
    PrivateBus bus{folder.path};
    QDBusConnection own{QString()};
    std::promise<void> hasBegun;
    std::promise<InstallerReply> go;
    InstallerLaunchRequest asked;
    int ends = 0;
    std::unique_ptr<InstallerXPCListener> listener;
};

TEST_F(InstallerXPCListenerTest, TheAnswerComesWhenTheWorkIsDoneAndTheNameIsFreeByThen) {
    make();
    listen();
    const auto reply = callWell();
    ASSERT_TRUE(begins());
    EXPECT_EQ(asked.stagedApp, "/tmp/New one.app");
    EXPECT_EQ(asked.currentApp, "/opt/Vimble.app");
    EXPECT_EQ(asked.currentProcessIdentifier, 412);
    EXPECT_FALSE(reply.isFinished());
    answer({"no \xc3\xa9 \"room\"", true});
    EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
    EXPECT_FALSE(bus.processOf(name));
    ASSERT_TRUE(reply.isValid()) << reply.error().message().toStdString();
    EXPECT_EQ(reply.argumentAt<0>(), QStringList(QStringLiteral("no é \"room\"")));
    EXPECT_TRUE(reply.argumentAt<1>());
    EXPECT_TRUE(turnUntil([&] { return ends == 1; }));
}

TEST_F(InstallerXPCListenerTest, SuccessIsAnAnswerWithoutAText) {
    make();
    listen();
    const auto reply = callWell();
    ASSERT_TRUE(begins());
    answer({});
    EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
    ASSERT_TRUE(reply.isValid()) << reply.error().message().toStdString();
    EXPECT_EQ(reply.argumentAt<0>(), QStringList());
    EXPECT_FALSE(reply.argumentAt<1>());
}

TEST_F(InstallerXPCListenerTest, AFailureWithoutWordsIsAFailure) {
    make();
    listen();
    const auto reply = callWell();
    ASSERT_TRUE(begins());
    answer({"", false});
    EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
    ASSERT_TRUE(reply.isValid()) << reply.error().message().toStdString();
    EXPECT_EQ(reply.argumentAt<0>(), QStringList(QString()));
}

TEST_F(InstallerXPCListenerTest, WhoAsksWhileItWorksIsAnsweredAtOnce) {
    make();
    listen();
    const auto first = callWell();
    ASSERT_TRUE(begins());
    const auto second = callWell();
    EXPECT_TRUE(turnUntil([&] { return second.isFinished(); }));
    EXPECT_EQ(second.argumentAt<0>(), QStringList(QStringLiteral("Another update is being installed")));
    EXPECT_FALSE(first.isFinished());
    // A third request comes while the first is being answered.
    answer({});
    const auto third = callWell();
    EXPECT_TRUE(turnUntil([&] { return first.isFinished() && third.isFinished(); }));
    EXPECT_TRUE(first.isValid());
    EXPECT_TRUE(third.isValid()) << third.error().message().toStdString();
}

TEST_F(InstallerXPCListenerTest, ABadRequestIsRefusedAndAGoodOneTakenAfterIt) {
    make();
    listen();
    const auto bad = call({QStringLiteral("New.app"), QStringLiteral("file:///opt/Vimble.app"), 412});
    const auto wrongTypes = call({QStringLiteral("file:///New.app"), 7});
    EXPECT_TRUE(turnUntil([&] { return bad.isFinished() && wrongTypes.isFinished(); }));
    EXPECT_EQ(bad.argumentAt<0>(),
              QStringList(QStringLiteral("The staged application is given by no absolute file URL")));
    EXPECT_TRUE(wrongTypes.isError());
    EXPECT_EQ(ends, 0);
    const auto good = callWell();
    ASSERT_TRUE(begins());
    answer({});
    EXPECT_TRUE(turnUntil([&] { return good.isFinished(); }));
    EXPECT_TRUE(good.isValid());
}

TEST_F(InstallerXPCListenerTest, WithNobodyAskingItEnds) {
    make(1ms);
    listen();
    EXPECT_TRUE(turnUntil([&] { return ends == 1; }));
}

TEST_F(InstallerXPCListenerTest, AtWorkItStays) {
    make(300ms);
    listen();
    const auto reply = callWell();
    ASSERT_TRUE(begins());
    EXPECT_FALSE(turnUntil([&] { return ends > 0; }, 600));
    answer({});
    EXPECT_TRUE(turnUntil([&] { return ends == 1; }));
    EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
}

TEST_F(InstallerXPCListenerTest, WithoutItsBusItEndsOnceTheWorkIsDone) {
    make();
    listen();
    const auto reply = callWell();
    ASSERT_TRUE(begins());
    bus.kill();
    EXPECT_TRUE(turnUntil([&] { return reply.isFinished() && !own.isConnected(); }));
    EXPECT_EQ(ends, 0);
    answer({});
    EXPECT_TRUE(turnUntil([&] { return ends == 1; }));
}

TEST_F(InstallerXPCListenerTest, WithoutItsBusAndWithoutWorkItEnds) {
    make();
    listen();
    bus.kill();
    EXPECT_TRUE(turnUntil([&] { return ends == 1; }));
}

TEST_F(InstallerXPCListenerTest, ANameThatAnotherOneHasIsNotTaken) {
    QDBusConnection other = bus.connection();
    ASSERT_TRUE(other.registerService(QLatin1String(name)));
    make();
    EXPECT_NE(listener->listen(QLatin1String(name)), QString());
}

}  // namespace
