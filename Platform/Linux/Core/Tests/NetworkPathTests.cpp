#include "PlatformCore/NetlinkPathMonitor.h"

#include "PlatformCore/SleepWatch.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/TestLoop.h"

#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

NetworkPath pathWith(std::vector<NetworkPath::Route> routes, bool hasInterfaces,
                     std::vector<std::string> ownAddresses = {}) {
    NetworkPath path;
    path.defaultRoutes = std::move(routes);
    path.hasInterfaces = hasInterfaces;
    path.ownAddresses = std::move(ownAddresses);
    path.isKnown = true;
    return path;
}

TEST(NetworkPathTest, ADefaultRouteOrNothingButLoopbackSatisfies) {
    const NetworkPath::Route route{AF_INET6, 2, {}};
    EXPECT_TRUE(pathWith({route}, true).isSatisfied(""));
    EXPECT_FALSE(pathWith({}, true).isSatisfied(""));
    EXPECT_TRUE(pathWith({}, false).isSatisfied(""));
    EXPECT_TRUE(NetworkPath().isSatisfied("")) << "when nothing is known, trying is the better guess";
}

TEST(NetworkPathTest, AnEndpointOnThisMachineNeedsNoRoute) {
    const NetworkPath path = pathWith({}, true, {"192.168.7.20", "2001:db8::7"});
    for (const std::string url : {"ws://localhost:8080/relay", "http://LOCALHOST./", "wss://relay.localhost/",
                                  "ws://127.0.0.1", "ws://127.8.9.10:80", "ws://[::1]:8080", "ws://[::ffff:127.0.0.1]/",
                                  "ws://192.168.7.20:1", "ws://[2001:DB8::7]/", "ws://[::ffff:192.168.7.20]/"})
        EXPECT_TRUE(path.isSatisfied(url)) << url;
    for (const std::string url :
         {"", "wss://chat.example.org/", "ws://192.168.7.21", "ws://[2001:db8::8]", "ws://128.0.0.1",
          "ws://localhost.example.org", "ws://notlocalhost", "localhost:8080", "ws://127.0.0.1.example.org"})
        EXPECT_FALSE(path.isSatisfied(url)) << url;
}

/// Puts the thread into an empty network namespace for the test, and back at the end.
class NetworkNamespaceTest : public ::testing::Test {
protected:
    void SetUp() override {
        before = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (before < 0 || unshare(CLONE_NEWNET) != 0) {
            if (before >= 0) close(before);
            before = -1;
            GTEST_SKIP() << "this kernel or user may not make network namespaces";
        }
    }

    void TearDown() override {
        if (before < 0) return;
        EXPECT_EQ(setns(before, CLONE_NEWNET), 0);
        close(before);
    }

    static void ip(const QString& arguments) {
        QProcess process;
        process.start(QStringLiteral("ip"), arguments.split(QLatin1Char(' ')));
        ASSERT_TRUE(process.waitForFinished());
        ASSERT_EQ(process.exitCode(), 0) << arguments.toStdString() << ": "
                                         << process.readAllStandardError().toStdString();
    }

    void start() {
        monitor.start([this](bool isSatisfied) { reports.push_back(isSatisfied); });
    }

    bool reportsBecome(std::size_t count) {
        return turnUntil([&] {
            loop.run();
            return reports.size() >= count;
        });
    }

    /// Runs both loops for a moment, to show that nothing more comes.
    void settle() {
        for (int i = 0; i < 10; ++i) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            loop.run();
        }
    }

    int before = -1;
    TestLoop loop;
    NetlinkPathMonitor monitor{loop};
    std::vector<bool> reports;
};

TEST_F(NetworkNamespaceTest, WithNothingButLoopbackThePathIsSatisfied) {
    start();
    EXPECT_THAT(reports, IsEmpty()) << "reported inside start";
    loop.run();
    EXPECT_THAT(reports, ElementsAre(true));
}

TEST_F(NetworkNamespaceTest, DefaultRoutesComeAndGo) {
    ip(QStringLiteral("link add left type veth peer name right"));
    start();
    loop.run();
    ASSERT_THAT(reports, ElementsAre(false)) << "an interface without a default route";

    ip(QStringLiteral("addr add 10.9.8.7/24 dev left"));
    ip(QStringLiteral("link set left up"));
    ip(QStringLiteral("link set right up"));
    settle();
    EXPECT_THAT(reports, SizeIs(1)) << "no default route has changed";

    ip(QStringLiteral("route add default via 10.9.8.1"));
    ASSERT_TRUE(reportsBecome(2));
    ip(QStringLiteral("route replace default via 10.9.8.2"));
    ASSERT_TRUE(reportsBecome(3));
    ip(QStringLiteral("route del default"));
    ASSERT_TRUE(reportsBecome(4));
    settle();
    EXPECT_THAT(reports, ElementsAre(false, true, true, false));

    ip(QStringLiteral("route add unreachable default"));
    settle();
    EXPECT_THAT(reports, SizeIs(4)) << "a route that leads nowhere was counted";
    ip(QStringLiteral("route del unreachable default"));

    ip(QStringLiteral("-6 route add default dev left"));
    ASSERT_TRUE(reportsBecome(5));
    EXPECT_TRUE(reports.back()) << "IPv6";
}

TEST_F(NetworkNamespaceTest, ACableThatIsPulledEndsThePath) {
    ip(QStringLiteral("link add left type veth peer name right"));
    ip(QStringLiteral("addr add 10.9.8.7/24 dev left"));
    ip(QStringLiteral("link set left up"));
    ip(QStringLiteral("link set right up"));
    ip(QStringLiteral("route add default via 10.9.8.1"));
    start();
    ASSERT_TRUE(reportsBecome(1));
    ip(QStringLiteral("link set right down"));
    ASSERT_TRUE(reportsBecome(2));
    ip(QStringLiteral("link set right up"));
    ASSERT_TRUE(reportsBecome(3));
    EXPECT_THAT(reports, ElementsAre(true, false, true));
}

TEST_F(NetworkNamespaceTest, TheEndpointInUseDecidesWithTheAddressesOfThisMachine) {
    ip(QStringLiteral("link add left type veth peer name right"));
    start();
    loop.run();
    monitor.setEndpointUrl("ws://10.9.8.7:8080/");
    monitor.setEndpointUrl("ws://10.9.8.7:8080/");
    loop.run();
    ASSERT_THAT(reports, ElementsAre(false, false));
    ip(QStringLiteral("addr add 10.9.8.7/24 dev left"));
    ip(QStringLiteral("link set left up"));
    ASSERT_TRUE(reportsBecome(3)) << "the address became ours";
    monitor.setEndpointUrl("wss://chat.example.org/");
    EXPECT_THAT(reports, SizeIs(3)) << "reported inside the call";
    monitor.setEndpointUrl("ws://localhost/");
    loop.run();
    EXPECT_THAT(reports, ElementsAre(false, false, true, false, true));
}

TEST_F(NetworkNamespaceTest, AfterCancelNothingIsReportedAndItCanStartAgain) {
    start();
    monitor.cancel();
    ip(QStringLiteral("link add left type veth peer name right"));
    settle();
    EXPECT_THAT(reports, IsEmpty());
    start();
    loop.run();
    EXPECT_THAT(reports, ElementsAre(false));
}

TEST_F(NetworkNamespaceTest, TheHandlerMayDestroyTheMonitor) {
    auto own = std::make_unique<NetlinkPathMonitor>(loop);
    own->start([&](bool) { own.reset(); });
    own->setEndpointUrl("ws://localhost/");
    settle();
    EXPECT_FALSE(own);
}

TEST(SleepWatchTest, WakingIsToldAndGoingToSleepIsNot) {
    QTemporaryDir folder;
    const QString address = QStringLiteral("unix:path=") + folder.filePath(QStringLiteral("bus"));
    QProcess daemon;
    daemon.start(QStringLiteral("dbus-daemon"),
                 {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                  QStringLiteral("--print-address"), QStringLiteral("--address=") + address});
    ASSERT_TRUE(daemon.waitForStarted());
    ASSERT_TRUE(daemon.waitForReadyRead());
    {
        QDBusConnection logind = QDBusConnection::connectToBus(address, QStringLiteral("logind"));
        ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
        int woken = 0;
        const SleepWatch watch(QDBusConnection::connectToBus(address, QStringLiteral("watcher")), [&] { ++woken; });
        const auto tell = [&](bool isGoingToSleep) {
            QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                             QStringLiteral("org.freedesktop.login1.Manager"),
                                                             QStringLiteral("PrepareForSleep"));
            signal << isGoingToSleep;
            logind.send(signal);
        };
        tell(true);
        tell(false);
        EXPECT_TRUE(turnUntil([&] { return woken > 0; }));
        tell(true);
        tell(false);
        EXPECT_TRUE(turnUntil([&] { return woken > 1; }));
        EXPECT_EQ(woken, 2);
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("logind"));
    QDBusConnection::disconnectFromBus(QStringLiteral("watcher"));
    daemon.terminate();
    daemon.waitForFinished();
}

TEST(SleepWatchTest, WithoutABusItIsQuiet) {
    const SleepWatch watch(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nowhere"), QStringLiteral("none")),
                           [] { FAIL(); });
    QCoreApplication::processEvents();
}

}  // namespace
