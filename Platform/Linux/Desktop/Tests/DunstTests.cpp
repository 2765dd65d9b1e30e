#include "PlatformDesktop/FreedesktopNotifications.h"

#include "PlatformCore/QtMainLoop.h"
#include "QtTestSupport/QtWait.h"

#include <QApplication>
#include <QIcon>
#include <QProcess>

#include <optional>

#include <gtest/gtest.h>

// These tests use a real notification daemon, for which notifications.sh starts a bus and a screen of their own.

namespace {

std::string run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForFinished()) << program.toStdString();
    return process.readAllStandardOutput().trimmed().toStdString();
}

std::string dunst(const QStringList& arguments) { return run(QStringLiteral("dunstctl"), arguments); }

bool displays(int count) {
    return turnUntil([&] {
        return dunst({QStringLiteral("count"), QStringLiteral("displayed")}) == std::to_string(count);
    });
}

/// The process number of the service; empty if there is none.
QString servicePid() {
    const QString answer = QString::fromStdString(
        run(QStringLiteral("dbus-send"),
            {QStringLiteral("--session"), QStringLiteral("--print-reply=literal"),
             QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
             QStringLiteral("org.freedesktop.DBus.GetConnectionUnixProcessID"),
             QStringLiteral("string:org.freedesktop.Notifications")}));
    return answer.section(u' ', -1);
}

TEST(NotificationsOnDunst, ABubbleIsShownAndClickedAndCleared) {
    QApplication::setWindowIcon(QIcon(qEnvironmentVariable("VIMBLE_TEST_ICON")));
    QtMainLoop loop;
    FreedesktopNotifications center(loop);
    std::optional<ActivationToken> clicked;
    center.onActivated([&](const ActivationToken& token) { clicked = token; });
    using Kind = UserNotification::Kind;
    center.add({"1", Kind::message, "🦊 Ann", "chat.example.com", "Is <b>1 < 2</b> & so on? דנה 漢字"}, 0.05);
    ASSERT_TRUE(displays(1));
    center.add({"2", Kind::presence, "🐙 Bert is online", "chat.example.com", ""}, 0.05);
    ASSERT_TRUE(displays(2));
    run(QStringLiteral("import"),
        {QStringLiteral("-window"), QStringLiteral("root"), qEnvironmentVariable("VIMBLE_TEST_PICTURE")});

    // Invokes the default action of the bubble on top, as a click does, and leaves it open.
    dunst({QStringLiteral("action"), QStringLiteral("0")});
    EXPECT_TRUE(turnUntil([&] { return clicked.has_value(); }));

    center.removeAllDelivered();
    EXPECT_TRUE(displays(0));
    // The texts of closed bubbles can be read from the daemon's history.
    const std::string history = dunst({QStringLiteral("history")});
    for (const char* expected : {"🦊 Ann · chat.example.com", "Is &lt;b&gt;1 &lt; 2&lt;/b&gt; &amp; so on? דנה 漢字",
                                 "🐙 Bert is online · chat.example.com", "im.received", "presence.online", "\"Vimble\""})
        EXPECT_NE(history.find(expected), std::string::npos) << expected << "\n" << history;
}

TEST(NotificationsOnDunst, ADaemonThatIsKilledIsStartedAgainForTheNextBubble) {
    QtMainLoop loop;
    FreedesktopNotifications center(loop);
    center.add({"1", UserNotification::Kind::message, "Ann", "", "one"}, 0);
    ASSERT_TRUE(displays(1));
    const QString daemon = servicePid();
    ASSERT_FALSE(daemon.isEmpty());
    run(QStringLiteral("kill"), {QStringLiteral("-9"), daemon});
    ASSERT_TRUE(turnUntil([&] { return servicePid() != daemon; }));
    center.add({"2", UserNotification::Kind::message, "Ann", "", "two"}, 0.5);
    EXPECT_TRUE(displays(1));
    center.removeAllDelivered();
    EXPECT_TRUE(displays(0));
    EXPECT_NE(dunst({QStringLiteral("history")}).find("two"), std::string::npos);
}

}  // namespace
