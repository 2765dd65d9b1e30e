#include "PlatformCore/NetlinkPathMonitor.h"

#include "QtTestSupport/QtWait.h"
#include "TestSupport/TestLoop.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

// This test runs on a session bus of its own, which also stands for the system bus: see CMakeLists.txt.
TEST(MonitorOnBusTest, WakingFromSleepIsAPathThatWentAndCameBack) {
    QDBusConnection logind = QDBusConnection::sessionBus();
    ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
    TestLoop loop;
    NetlinkPathMonitor monitor(loop);
    monitor.setEndpointUrl("ws://localhost:8080/");  // satisfied, whatever this machine's routes are
    std::vector<bool> reports;
    monitor.start([&](bool isSatisfied) { reports.push_back(isSatisfied); });
    loop.run();
    ASSERT_THAT(reports, ::testing::ElementsAre(true));

    for (const bool isGoingToSleep : {true, false}) {
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                         QStringLiteral("org.freedesktop.login1.Manager"),
                                                         QStringLiteral("PrepareForSleep"));
        signal << isGoingToSleep;
        ASSERT_TRUE(logind.send(signal));
    }
    EXPECT_TRUE(turnUntil([&] {
        loop.run();
        return reports.size() >= 3;
    }));
    EXPECT_THAT(reports, ::testing::ElementsAre(true, false, true));
}

}  // namespace
