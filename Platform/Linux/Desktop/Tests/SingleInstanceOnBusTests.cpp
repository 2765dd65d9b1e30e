#include "PlatformDesktop/SingleInstance.h"

#include "QtTestSupport/QtWait.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVirtualObject>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

using Outcome = SingleInstance::Outcome;

/// A connection of its own to the bus, like that of another program.
class Connection {
public:
    Connection() : name(QStringLiteral("connection%1").arg(++count)) {
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    }
    ~Connection() { QDBusConnection::disconnectFromBus(name); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    QDBusConnection bus() const { return QDBusConnection(name); }

private:
    static inline std::atomic<int> count = 0;
    QString name;
};

/// The outcome of a program that starts later. It runs on a thread of its own, since it waits for our answer.
struct Later {
    Outcome outcome;
    QString error;
};

std::future<Later> startLater(const QString& name, const QStringList& urls, const ActivationToken& token = {},
                              std::chrono::milliseconds within = SingleInstance::patience) {
    return std::async(std::launch::async, [=] {
        const Connection connection;
        SingleInstance instance(name, connection.bus());
        const Outcome outcome = instance.claim(urls, token, within);
        return Later{outcome, instance.error()};
    });
}

Later finished(std::future<Later>& later) {
    EXPECT_TRUE(turnUntil([&] { return later.wait_for(0ms) == std::future_status::ready; }));
    return later.get();
}

/// An object that takes every call and answers none.
class Silent : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        message.setDelayedReply(true);
        calls++;
        return true;
    }

    std::atomic<int> calls = 0;
};

/// The calls of a program's handlers, a line each.
struct Told {
    std::vector<std::string> lines;

    SingleInstance::Handlers handlers() {
        const auto of = [](const ActivationToken& token) {
            return " [" + token.activation.toStdString() + "|" + token.startupId.toStdString() + "]";
        };
        return {[=, this](const ActivationToken& token) { lines.push_back("activate" + of(token)); },
                [=, this](const QStringList& urls, const ActivationToken& token) {
                    lines.push_back("open " + urls.join(QLatin1Char(' ')).toStdString() + of(token));
                }};
    }
};

class SingleInstanceOnBusTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Use another name for each test: the bus may not have released the last one yet.
        name = QStringLiteral("zorvane.Vimble.test%1").arg(++tests);
    }

    /// Sends a call as any program on the bus could.
    /// @return the name of the error in the answer; empty if there is none
    QString callRaw(const char* method, const QVariantList& arguments) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(name, SingleInstance::objectPath(name),
                                           QStringLiteral("org.freedesktop.Application"), QLatin1String(method));
        message.setArguments(arguments);
        const QDBusPendingReply<> reply = other.bus().asyncCall(message);
        EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
        return reply.error().name();
    }

    void turn() {
        // Handle posted events, and those that they post in turn.
        for (int i = 0; i < 200; i++) QCoreApplication::processEvents();
    }

    static inline int tests = 0;
    QString name;
    Connection own;
    Connection other;
};

TEST_F(SingleInstanceOnBusTest, TheFirstOwnsTheNameAndALaterOneHandsItsUrlsAndTokenOn) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());

    const QString url = QStringLiteral("vimble://hello?a=b%20c");
    auto later =
        startLater(name, {url, QStringLiteral("vimble:é")}, {QStringLiteral("token1"), QStringLiteral("start_TIME7")});
    EXPECT_EQ(finished(later).outcome, Outcome::forwarded);
    EXPECT_TRUE(turnUntil([&] { return !told.lines.empty(); }));
    EXPECT_THAT(told.lines, ElementsAre("open vimble://hello?a=b%20c vimble:é [token1|start_TIME7]"));
}

TEST_F(SingleInstanceOnBusTest, ALaterOneWithoutUrlsAsksToComeForward) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());

    auto later = startLater(name, {}, {QStringLiteral("token1"), {}});
    EXPECT_EQ(finished(later).outcome, Outcome::forwarded);
    EXPECT_TRUE(turnUntil([&] { return !told.lines.empty(); }));
    EXPECT_THAT(told.lines, ElementsAre("activate [token1|]"));
}

TEST_F(SingleInstanceOnBusTest, CallsBeforeTheHandlersAreAnsweredAtOnceAndDeliveredOnceTheyAreSet) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    for (const char* url : {"vimble:1", "vimble:2"}) {
        auto later = startLater(name, {QLatin1String(url)});
        EXPECT_EQ(finished(later).outcome, Outcome::forwarded);
    }
    auto later = startLater(name, {});
    EXPECT_EQ(finished(later).outcome, Outcome::forwarded);

    Told told;
    first.setHandlers(told.handlers());
    EXPECT_THAT(told.lines, IsEmpty()) << "inside the call";
    EXPECT_TRUE(turnUntil([&] { return told.lines.size() >= 3; }));
    EXPECT_THAT(told.lines, ElementsAre("open vimble:1 [|]", "open vimble:2 [|]", "activate [|]"));
}

TEST_F(SingleInstanceOnBusTest, OfManyThatStartTogetherOneIsTheFirst) {
    constexpr int count = 6;
    std::promise<void> everybodyIsDone;
    const std::shared_future<void> done = everybodyIsDone.get_future();
    std::vector<std::future<Outcome>> outcomes(count);
    std::atomic<int> claimed = 0;
    for (auto& outcome : outcomes)
        outcome = std::async(std::launch::async, [&] {
            const Connection connection;
            SingleInstance instance(name, connection.bus());
            // No loop turns here, so the first never answers, and the others have to give up by themselves.
            const Outcome mine = instance.claim({}, {}, 2s);
            claimed++;
            done.wait();
            return mine;
        });
    EXPECT_TRUE(turnUntil([&] { return claimed == count; }));
    everybodyIsDone.set_value();
    int firsts = 0;
    for (auto& outcome : outcomes) firsts += outcome.get() == Outcome::first ? 1 : 0;
    EXPECT_EQ(firsts, 1);
}

TEST_F(SingleInstanceOnBusTest, OneThatDoesNotAnswerIsReportedOnceTheTimeIsOver) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    // Our loop does not turn while this waits, so the first program acts like one that hangs.
    auto later = startLater(name, {QStringLiteral("vimble:1")}, {}, 1s);
    const Later end = later.get();
    EXPECT_EQ(end.outcome, Outcome::noAnswer);
    EXPECT_FALSE(end.error.isEmpty());
}

TEST_F(SingleInstanceOnBusTest, OneThatIsAskedAndDiesLeavesTheNameToTheOneWhoAsked) {
    Silent silent;
    auto dying = std::make_unique<Connection>();
    ASSERT_TRUE(dying->bus().registerVirtualObject(SingleInstance::objectPath(name), &silent));
    ASSERT_TRUE(dying->bus().registerService(name));
    auto later = startLater(name, {QStringLiteral("vimble:1")});
    ASSERT_TRUE(turnUntil([&] { return silent.calls > 0; }));
    dying.reset();
    EXPECT_EQ(finished(later).outcome, Outcome::first);
}

TEST_F(SingleInstanceOnBusTest, OneThatIsEndingSendsNobodyAwayAndIsFollowedByTheOneWhoAsked) {
    auto ending = std::make_unique<Connection>();
    auto first = std::make_unique<SingleInstance>(name, ending->bus());
    ASSERT_EQ(first->claim({}, {}), Outcome::first);
    Told told;
    first->setHandlers(told.handlers());
    first->beginEnding();

    for (const QStringList& urls : {QStringList(), QStringList(QStringLiteral("vimble:1"))}) {
        auto impatient = startLater(name, urls, {}, 200ms);
        EXPECT_EQ(finished(impatient).outcome, Outcome::noAnswer);
    }
    auto later = startLater(name, {QStringLiteral("vimble:1")});
    EXPECT_FALSE(turnUntil([&] { return later.wait_for(0ms) == std::future_status::ready; }, 200));
    first.reset();
    ending.reset();
    EXPECT_EQ(finished(later).outcome, Outcome::first);
    EXPECT_THAT(told.lines, IsEmpty());
}

TEST_F(SingleInstanceOnBusTest, OneThatWasDestroyedLeavesTheNameToTheNext) {
    auto first = std::make_unique<SingleInstance>(name, own.bus());
    ASSERT_EQ(first->claim({}, {}), Outcome::first);
    first.reset();
    auto later = startLater(name, {});
    EXPECT_EQ(finished(later).outcome, Outcome::first);
}

TEST_F(SingleInstanceOnBusTest, AnOwnerThatDoesNotKnowTheInterfaceCountsAsNoAnswerAtOnce) {
    QDBusConnection bus = own.bus();
    ASSERT_TRUE(bus.registerService(name));
    auto later = startLater(name, {});
    const Later end = finished(later);
    EXPECT_EQ(end.outcome, Outcome::noAnswer);
    EXPECT_FALSE(end.error.isEmpty());
}

TEST_F(SingleInstanceOnBusTest, TwoFoldersHaveAProgramEach) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    auto later = startLater(name + QStringLiteral(".d00"), {});
    EXPECT_EQ(finished(later).outcome, Outcome::first);
}

TEST_F(SingleInstanceOnBusTest, TooManyOrTooLongUrlsAreRefusedAndNothingOfThemIsKept) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());
    const QString limit = QStringLiteral("org.freedesktop.DBus.Error.LimitsExceeded");

    QStringList urls(SingleInstance::mostUrls + 1, QStringLiteral("vimble:1"));
    EXPECT_EQ(callRaw("Open", {urls, QVariantMap()}), limit);
    EXPECT_EQ(callRaw("Open", {QStringList(QString(SingleInstance::longestUrl + 1, QLatin1Char('u'))), QVariantMap()}),
              limit);
    turn();
    EXPECT_THAT(told.lines, IsEmpty());

    urls.removeLast();
    urls[0] = QString(SingleInstance::longestUrl, QLatin1Char('u'));
    EXPECT_EQ(callRaw("Open", {urls, QVariantMap()}), QString());
    EXPECT_TRUE(turnUntil([&] { return told.lines.size() == 1; }));
}

TEST_F(SingleInstanceOnBusTest, ALaterOneLeavesOutWhatTheFirstWouldRefuse) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());

    auto later =
        startLater(name, {QString(SingleInstance::longestUrl + 1, QLatin1Char('u')), QStringLiteral("vimble:1")});
    EXPECT_EQ(finished(later).outcome, Outcome::forwarded);
    auto many = startLater(name, QStringList(SingleInstance::mostUrls + 5, QStringLiteral("a")));
    EXPECT_EQ(finished(many).outcome, Outcome::forwarded);
    EXPECT_TRUE(turnUntil([&] { return told.lines.size() == 2; }));
    EXPECT_EQ(told.lines[0], "open vimble:1 [|]");
    EXPECT_EQ(told.lines[1].size(), std::string("open  [|]").size() + 2 * SingleInstance::mostUrls - 1);
}

TEST_F(SingleInstanceOnBusTest, CallsThatWaitForTheHandlersAreLimited) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    for (std::size_t i = 0; i < SingleInstance::mostWaiting; i++)
        ASSERT_EQ(callRaw("Activate", {QVariantMap()}), QString());
    EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QStringLiteral("org.freedesktop.DBus.Error.LimitsExceeded"));

    Told told;
    first.setHandlers(told.handlers());
    turn();
    EXPECT_EQ(told.lines.size(), SingleInstance::mostWaiting);
    EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QString());
}

TEST_F(SingleInstanceOnBusTest, ATokenThatCanNotBeOneCountsAsNone) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());
    const auto with = [](const QVariant& activation, const QVariant& startup) {
        return QVariantMap{{QStringLiteral("activation-token"), activation},
                           {QStringLiteral("desktop-startup-id"), startup}};
    };
    const QString longest(ActivationToken::longest, QLatin1Char('t'));
    EXPECT_EQ(callRaw("Activate", {with(longest + QLatin1Char('t'), QStringLiteral("good"))}), QString());
    EXPECT_EQ(callRaw("Activate", {with(QStringLiteral("two\nlines"), 7)}), QString());
    EXPECT_EQ(callRaw("Activate", {with(longest, QStringLiteral("é"))}), QString());
    EXPECT_TRUE(turnUntil([&] { return told.lines.size() == 3; }));
    EXPECT_THAT(told.lines,
                ElementsAre("activate [|good]", "activate [|]", "activate [" + longest.toStdString() + "|]"));
}

TEST_F(SingleInstanceOnBusTest, AnActionIsAnsweredWithAnErrorAndWrongArgumentsTouchNothing) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    Told told;
    first.setHandlers(told.handlers());
    EXPECT_EQ(callRaw("ActivateAction", {QStringLiteral("quit"), QVariantList(), QVariantMap()}),
              QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_NE(callRaw("Activate", {}), QString());
    EXPECT_NE(callRaw("Open", {QStringLiteral("vimble:1"), QVariantMap()}), QString());
    turn();
    EXPECT_THAT(told.lines, IsEmpty());
}

TEST_F(SingleInstanceOnBusTest, AHandlerMayTurnTheLoopWhileOthersCall) {
    SingleInstance first(name, own.bus());
    ASSERT_EQ(first.claim({}, {}), Outcome::first);
    int depth = 0;
    std::vector<int> depths;
    first.setHandlers({[&](const ActivationToken&) {
                           depth++;
                           depths.push_back(depth);
                           // Turn the loop within the handler, as a dialog does.
                           if (depths.size() == 1) {
                               EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QString());
                           }
                           depth--;
                       },
                       {}});
    EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QString());
    EXPECT_TRUE(turnUntil([&] { return depths.size() >= 2; }));
}

TEST_F(SingleInstanceOnBusTest, AHandlerMayDestroyTheInstance) {
    auto first = std::make_unique<SingleInstance>(name, own.bus());
    ASSERT_EQ(first->claim({}, {}), Outcome::first);
    EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QString());
    EXPECT_EQ(callRaw("Activate", {QVariantMap()}), QString());
    int calls = 0;
    first->setHandlers({[&](const ActivationToken&) {
                            calls++;
                            first.reset();
                        },
                        {}});
    EXPECT_TRUE(turnUntil([&] { return calls > 0; }));
    turn();
    EXPECT_EQ(calls, 1);
}

}  // namespace
